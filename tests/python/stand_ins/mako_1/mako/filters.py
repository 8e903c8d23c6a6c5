DEFAULT_ESCAPES = {'h': 'filters.html_escape', 'trim': 'filters.trim'}


def html_escape(text):
    return text.replace('&', '&amp;').replace('<', '&lt;').replace('>', '&gt;')


def trim(text):
    return text.strip()
