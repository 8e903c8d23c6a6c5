"""The hook for Chameleon, 2.x and 3.x: page templates and not the Python that they are made into.

Functions of templates come with each template that is made into code, which happens in one place:
the core asks about the end of that as about a template's own code.
"""

from __future__ import absolute_import

import gc
import os
import weakref

from sorrel.languages import chameleon_code, chameleon_variables, generated_code

# What renders templates, whatever class has it.
_RENDERING = ('__call__', 'render', 'include')


def hook(engine):
    """engine: chameleon.template; None where it is not all there yet."""
    template = getattr(engine, 'BaseTemplate', None)
    return template and Hook(template, [engine.MemoryLoader.build, engine.ModuleLoader._load])


class Hook(generated_code.Hook):

    def __init__(self, template, loaders):
        """template: the class of all templates. loaders: methods that run a template's module."""
        self._makes = template.cook.im_func.func_code
        runs = [method.im_func.func_code for method in loaders]
        generated_code.Hook.__init__(
            self, [], [self._makes.co_filename], [self._makes] + runs)
        self._template = template
        # By id(), modules of templates, and references to the templates.
        self._templates = {}

    def code_of(self, namespace):
        if not chameleon_code.is_namespace(namespace):
            return []
        self._hide(chameleon_code.module_path(namespace))
        return chameleon_code.functions(namespace)

    def namespaces(self):
        found = []
        for kind in self._classes():
            for known in gc.get_referrers(kind):
                if type(known) is kind:
                    found.append(self._namespace(known))
        return found

    def lines_of(self, code, namespace):
        return chameleon_code.lines(code, namespace)

    def path_of(self, frame):
        return self._of(frame).path

    def called(self, frame):
        if frame.f_code is not self._makes:
            self._hide(frame.f_locals['filename'])

    def _hide(self, path):
        """Of a template's module nothing is the template's but the functions."""
        self._leave_to_hook(path)
        self._leave_to_hook(os.path.abspath(path))

    def _namespace(self, template):
        """The variables of a template's module; none as long as there is no module."""
        render = template.__dict__.get('_render')
        namespace = getattr(render, 'func_globals', {})
        # With the module, so that no other one is ever at its address.
        self._templates[id(namespace)] = weakref.ref(template), namespace
        return namespace

    def _classes(self):
        found = [self._template]
        for kind in found:
            found += [derived for derived in kind.__subclasses__() if derived not in found]
        return found

    # What the core asks.

    def _GetMarkerFrames(self):
        methods = [kind.__dict__.get(name) for kind in self._classes() for name in _RENDERING]
        return [self._makes] + [
            method.func_code for method in methods if hasattr(method, 'func_code')]

    def _StopHere(self, frame, event, kind):
        if frame.f_code is self._makes and event == generated_code.RETURN:
            self.learn(self._namespace(frame.f_locals['self']))
            self.tell_core()
        return generated_code.Hook._StopHere(self, frame, event, kind)

    def _TranslateFrame(self, frame, for_exception):
        path, line = generated_code.Hook._TranslateFrame(self, frame, for_exception)
        return path, chameleon_code.line_of_error(frame, path) or line

    # What front ends ask.

    def _Variables(self, frame):
        return chameleon_variables.of_frame(frame)

    def _SetVariable(self, frame, name, value):
        chameleon_variables.assign(frame, name, value)

    def _Eval(self, text, frame):
        reference, _ = self._templates.get(id(frame.f_globals), (None, None))
        return chameleon_variables.evaluate(text, frame, reference and reference())
