"""What the interpreter's C code does with exceptions of the Python code that it calls.

Made from the sources of CPython 2.6 and 2.7. A row holds for a function that C code has called, by
what its caller in Python is executing: an instruction, by its name, or a call of something in C, as
it is named in Python. The rows are asked in their order; the first that fits counts.
"""

from __future__ import absolute_import

from sorrel.common.records import record

# What becomes of the exception: gone, or replaced by another one; printed as "ignored" and gone;
# one of these, or it goes on, which shows when it has come to the caller.
DROPPED, PRINTED, PERHAPS = 'dropped', 'printed', 'perhaps'

# by: names of instructions and of what is in C; () for any. called: names of functions; () for any.
# attributes: names of attributes that the function is asked for, as a property or by one of
# __getattr__ and __getattribute__; () for any, and where it is not asked for one. raised: the
# types that this goes for. when: the name of a condition on the call (see `c_calls`), or ''.
Row = record('Row', 'name by called attributes raised fate when')

ANY = ()
# All that can be raised, classic classes included.
ALL = (object,)

_TRUTH_TESTS = ('UNARY_NOT', 'JUMP_IF_FALSE', 'JUMP_IF_TRUE', 'POP_JUMP_IF_FALSE',
                'POP_JUMP_IF_TRUE', 'JUMP_IF_FALSE_OR_POP', 'JUMP_IF_TRUE_OR_POP',
                # 2.6 goes on from these to the jump without saying so.
                'COMPARE_OP', 'bool', 'filter', 'any', 'all', 'operator.truth', 'operator.not_')
_PRINTING = ('PRINT_ITEM', 'PRINT_ITEM_TO', 'PRINT_NEWLINE', 'PRINT_NEWLINE_TO')
_VAR_CALLS = ('CALL_FUNCTION_VAR', 'CALL_FUNCTION_VAR_KW')
_STORE_SLICE = ('STORE_SLICE+0', 'STORE_SLICE+1', 'STORE_SLICE+2', 'STORE_SLICE+3')

# These run through an iterator or a sequence to its end.
ITERATING = (
    'list', 'tuple', 'set', 'frozenset', 'dict', 'sorted', 'map', 'filter', 'zip', 'reduce', 'sum',
    'min', 'max', 'any', 'all', 'list.extend', 'str.join', 'unicode.join', 'set.update',
    'frozenset.union', 'set.union', 'set.intersection', 'set.difference', 'file.writelines',
    'dict.update', 'dict.fromkeys', 'list.__init__', 'list.__iadd__', 'collections.deque',
    'collections.deque.extend', 'bytearray', 'operator.contains', 'operator.countOf',
    'operator.indexOf', 'itertools.izip', 'next')
# And of these they ask first how many there are: _PyObject_LengthHint.
_ASKING_LENGTH = ('list', 'tuple', 'sorted', 'map', 'filter', 'zip', 'list.extend', 'str.join',
                  'unicode.join', 'list.__init__', 'list.__iadd__', 'bytearray', 'max', 'min',
                  'file.writelines')
_TO_THE_END = ITERATING + _VAR_CALLS + _STORE_SLICE + (
    'COMPARE_OP', 'UNPACK_SEQUENCE', 'FOR_ITER', 'INPLACE_ADD', 'IMPORT_STAR', 'IMPORT_NAME')

_BINARY = ('add', 'sub', 'mul', 'div', 'mod', 'divmod', 'pow', 'lshift', 'rshift', 'and', 'or',
           'xor', 'floordiv', 'truediv')
# What classic instances are asked for, and do well without.
_CLASSIC = ('next', ) + tuple(['__%s__' % name for name in (
    'nonzero', 'cmp', 'lt', 'le', 'eq', 'ne', 'gt', 'ge', 'coerce', 'contains', 'iter', 'hash',
    'repr', 'str', 'unicode', 'index', 'call', 'trunc', 'getslice', 'setslice', 'delslice', 'dir')
    + _BINARY + tuple(['r' + name for name in _BINARY])
    + tuple(['i' + name for name in _BINARY if name != 'divmod'])])

ROWS = tuple([Row(*row) for row in (
    # classobject.c instance_dealloc; typeobject.c slot_tp_del
    ('a destructor', ANY, ('__del__',), ANY, ALL, PRINTED, 'is_release'),
    ('a destructor, or a call of it', ANY, ('__del__',), ANY, ALL, PERHAPS, 'may_be_release'),
    # weakrefobject.c handle_callback
    ("a weak reference's callback", ANY, ANY, ANY, ALL, PRINTED, 'is_release_of_referent'),
    ("a weak reference's callback, or a call", ANY, ANY, ANY, ALL, PERHAPS,
     'may_be_release_of_referent'),
    # genobject.c gen_close, gen_del
    ('the end of a generator that is closed', ('generator.close',), ANY, ANY,
     (StopIteration, GeneratorExit), DROPPED, 'is_generator'),
    ('a generator that is dropped', ANY, ANY, ANY, ALL, PRINTED, 'is_release_of_generator'),
    # errors.c PyErr_WriteUnraisable, PyErr_GivenExceptionMatches
    ('the text of an error that is ignored', ANY, ('__str__', '__repr__'), ANY, ALL, DROPPED,
     'is_releasing'),
    ('an except clause', ('COMPARE_OP',), ('__subclasscheck__',), ANY, ALL, PRINTED,
     'is_except_clause'),

    # bltinmodule.c
    ('hasattr', ('hasattr',), ANY, ANY, (Exception,), DROPPED, ''),
    ('getattr with a default', ('getattr',), ANY, ANY, (AttributeError,), DROPPED,
     'has_3_arguments'),
    ('next with a default', ('next',), ANY, ANY, (StopIteration,), DROPPED, 'has_2_arguments'),
    # typeobject.c slot_tp_getattr_hook; classobject.c instance_getattr
    ('an attribute for which __getattr__ is asked next', ANY, ANY, ANY, (AttributeError,), DROPPED,
     'is_before_getattr'),
    # abstract.c recursive_isinstance, abstract_get_bases; object.c _generic_dir, PyCallable_Check
    ('the class of an instance', ('isinstance',), ANY, ('__class__',), ALL, DROPPED, ''),
    ('the bases of a class', ('isinstance', 'issubclass'), ANY, ('__bases__',), (AttributeError,),
     DROPPED, ''),
    ('a property of an instance or a class', ('isinstance', 'issubclass'), ANY, ANY,
     (AttributeError,), DROPPED, 'is_property'),
    ('dir', ('dir',), ANY, ('__dict__', '__class__', '__bases__', '__members__', '__methods__'),
     ALL, DROPPED, ''),
    ('callable', ('callable',), ANY, ('__call__',), ALL, DROPPED, 'is_classic'),
    # abstract.c PyNumber_Int, PyNumber_Long; classobject.c instance_int; object.c PyObject_Unicode
    ('a classic number', ('int', 'long'), ANY, ('__int__', '__trunc__', '__long__'), ALL, PERHAPS,
     'is_classic'),
    ('a classic text', ('unicode',), ANY, ('__unicode__',), ALL, DROPPED, 'is_classic'),
    # _struct.c get_pylong, of 2.7
    ('an index that is packed', ('struct.pack', 'struct.pack_into', 'struct.Struct.pack',
                                 'struct.Struct.pack_into'),
     ('__index__',), ANY, (TypeError,), DROPPED, ''),
    # ceval.c build_class, import_all_from, import_from; import.c ensure_fromlist, get_path_importer
    ('the class of a base', ('BUILD_CLASS',), ANY, ('__class__',), ALL, DROPPED, ''),
    ('all names of a module', ('IMPORT_STAR',), ANY, ('__all__', '__dict__'), (AttributeError,),
     DROPPED, ''),
    ('a name of a module', ('IMPORT_FROM',), ANY, ANY, (AttributeError,), DROPPED, ''),
    ('a name of a package', ('IMPORT_NAME',), ('__getattr__', '__getattribute__'), ANY, ALL,
     DROPPED, ''),
    ('a path hook', ('IMPORT_NAME', '__import__', 'imp.find_module'), ('__init__',), ANY,
     (ImportError,), DROPPED, ''),
    # fileobject.c PyFile_SoftSpace
    ('softspace', _PRINTING, ANY, ('softspace',), ALL, DROPPED, ''),
    ('softspace, set', _PRINTING, ('__setattr__',), ANY, ALL, DROPPED, 'sets_softspace'),
    # typeobject.c reduce_2
    ('what a copy needs', ('object.__reduce_ex__', 'object.__reduce__'), ANY,
     ('__getnewargs__', '__getstate__', '__dict__'), ALL, DROPPED, ''),

    # classobject.c
    ('a classic instance without this method', ANY, ('__getattr__',), _CLASSIC, (AttributeError,),
     DROPPED, 'is_classic_question'),
    ('the length of a classic instance as its truth', _TRUTH_TESTS, ('__getattr__',), ('__len__',),
     (AttributeError,), DROPPED, 'is_classic_question'),
    ('a classic instance that is no sequence', _TO_THE_END + ('GET_ITER', 'iter'),
     ('__getattr__',), ('__getitem__',), (AttributeError,), DROPPED, 'is_classic_question'),

    ('a property of a classic instance', ANY, ANY, ANY, (AttributeError,), PERHAPS,
     'is_property_of_classic'),

    # abstract.c _PyObject_LengthHint
    ('a length', _ASKING_LENGTH + _VAR_CALLS + _STORE_SLICE + ('INPLACE_ADD',),
     ('__len__', '__length_hint__'), ANY, (TypeError, AttributeError), DROPPED, ''),
    ('a length that nobody knows', _ASKING_LENGTH + _VAR_CALLS + _STORE_SLICE + ('INPLACE_ADD',),
     ('__getattr__', '__getattribute__'), ('__len__', '__length_hint__'),
     (TypeError, AttributeError), DROPPED, ''),
    # iterobject.c iter_iternext; enumobject.c reversed_next
    ('the end of a sequence', _TO_THE_END, ('__getitem__',), ANY, (IndexError, StopIteration),
     DROPPED, ''),
    ('the end of a sequence at once', ('GET_ITER',), ('__getitem__',), ANY,
     (IndexError, StopIteration), DROPPED, 'is_loop'),
    # abstract.c PyIter_Next; listobject.c listextend; ceval.c FOR_ITER
    ('the end of an iterator', _TO_THE_END, ('next',), ANY, (StopIteration,), DROPPED,
     'has_not_1_argument_of_next'),
    ('the end of an iterator at once', ('GET_ITER',), ('next',), ANY, (StopIteration,), DROPPED,
     'is_loop'),
    ('the end of a generator', _TO_THE_END, ANY, ANY, (StopIteration,), DROPPED,
     'is_generator_to_its_end'),
    ('the end of a generator at once', ('GET_ITER',), ANY, ANY, (StopIteration,), DROPPED,
     'is_generator_in_loop'),

    # ceval.c LOAD_NAME
    ('a name of other namespaces', ('LOAD_NAME',), ('__getitem__', '__missing__'), ANY,
     (KeyError,), DROPPED, ''),
    # dictobject.c PyDict_GetItem, of dict_equal and dict_compare
    ('keys of dictionaries that are compared', ('COMPARE_OP',),
     ('__eq__', '__cmp__', '__hash__'), ANY, ALL, PERHAPS, 'compares_dictionaries'),
    # setobject.c set_contains, set_remove, set_discard
    ('a set in a set', ('COMPARE_OP', 'set.remove', 'set.discard'), ('__hash__',), ANY,
     (TypeError,), DROPPED, 'is_set'),

    # Somebody in C who is not known may only be trying something out.
    ('a question', ANY, ('__getattr__', '__getattribute__'), ANY, (AttributeError,), PERHAPS,
     'is_call_of_unknown_c'),
    ('an item', ANY, ('__getitem__',), ANY, (IndexError, KeyError), PERHAPS,
     'is_call_of_unknown_c'),
    ('a length, somewhere', ANY, ('__len__', '__length_hint__'), ANY, (TypeError, AttributeError),
     PERHAPS, 'is_call_of_unknown_c'),
    ('an end, somewhere', ANY, ('next',), ANY, (StopIteration,), PERHAPS, 'is_call_of_unknown_c'),
    ('the end of a generator, somewhere', ANY, ANY, ANY, (StopIteration,), PERHAPS,
     'is_generator_in_unknown_c'),
)])

# These let every other exception through.
PASSING = ITERATING + (
    'apply', 'execfile', 'eval', 'getattr', 'setattr', 'delattr', 'hasattr', 'len', 'iter', 'repr',
    'str', 'unicode', 'int', 'long', 'float', 'complex', 'bool', 'hash', 'cmp', 'abs', 'divmod',
    'pow', 'round', 'hex', 'oct', 'coerce', 'format', 'isinstance', 'issubclass', 'callable', 'dir',
    'vars', 'reload', '__import__', 'type', 'super', 'property', 'enumerate', 'reversed', 'xrange',
    'generator.next', 'generator.send', 'generator.throw', 'generator.close', 'list.sort',
    'list.index', 'list.remove', 'list.count', 'dict.get', 'dict.setdefault', 'dict.pop',
    'dict.has_key', 'dict.__getitem__', 'dict.__setitem__', 'dict.__delitem__',
    'dict.__contains__', 'set.add', 'set.remove', 'set.discard', 'str.format', 'unicode.format',
    'object.__getattribute__', 'object.__setattr__', 'object.__reduce_ex__', 'object.__new__',
    'object.__init__', 'type.__call__', 'type.__new__', 'type.__init__', 'functools.partial',
    'operator.add', 'operator.eq', 'operator.getitem', 'operator.setitem', 'operator.lt',
    'operator.truth', 'operator.not_', 'imp.load_module', 'imp.load_source',
    'itertools.chain', 'itertools.imap', 'itertools.ifilter', 'itertools.groupby')
