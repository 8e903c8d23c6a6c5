class Scope(dict):
    __slots__ = ('_root',)

    def __getitem__(self, name):
        try:
            return dict.__getitem__(self, name)
        except KeyError:
            raise NameError(name)

    def copy(self):
        scope = Scope(self)
        scope._root = getattr(self, '_root', self)
        return scope


class Markup(unicode):

    def __html__(self):
        return unicode(self)
