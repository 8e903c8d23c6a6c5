import os

import jinja2

HERE = os.path.dirname(os.path.abspath(__file__))
ENVIRONMENT = jinja2.Environment(loader=jinja2.FileSystemLoader(os.path.join(HERE, 'templates')))

print ENVIRONMENT.get_template('page.html').render(title='Fruit', items=['apple', 'pear'])
