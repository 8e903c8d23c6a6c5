class TemplateError(Exception):
    pass


class RenderError(Exception):
    pass
