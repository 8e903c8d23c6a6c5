def escape(text):
    return text.replace('&', '&amp;').replace('<', '&lt;')
