"""Packs the extension for VS Code and prints the path of the package.

usage: make_vsix.py FOLDER-FOR-THE-PACKAGE
"""

import json
import os
import sys
from xml.sax.saxutils import escape, quoteattr

import archives

_TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
_EXTENSION = os.path.join(_TOP, 'editors', 'vscode')
# What the editor calls the kinds of files in a package.
_TYPES = {'js': 'application/javascript', 'json': 'application/json', 'md': 'text/markdown',
          'txt': 'text/plain', 'vsixmanifest': 'text/xml'}
_ASSETS = [('Microsoft.VisualStudio.Code.Manifest', 'extension/package.json'),
           ('Microsoft.VisualStudio.Services.Content.Details', 'extension/README.md'),
           ('Microsoft.VisualStudio.Services.Content.License', 'extension/LICENSE.txt')]


def make(folder):
    contents = _extension()
    project = json.loads(contents['extension/package.json'])
    contents['extension.vsixmanifest'] = _manifest(project).encode('utf-8')
    contents['[Content_Types].xml'] = _content_types()
    path = os.path.join(folder, '%(name)s-%(version)s.vsix' % project)
    archives.write(path, sorted(contents.items()))
    return path


def _extension():
    """The text of each file of the extension by its name in the package."""
    # Where Morvik is, so that nobody has to set it.
    contents = {
        'extension/morvik.json': json.dumps({'morvik': os.path.join(_TOP, 'morvik')}) + '\n',
        'extension/LICENSE.txt': _read(os.path.join(_TOP, 'LICENSE'))}
    for name in os.listdir(_EXTENSION):
        if name.endswith(('.js', '.json', '.md')):
            contents['extension/' + name] = _read(os.path.join(_EXTENSION, name))
    return contents


def _manifest(project):
    properties = [('Microsoft.VisualStudio.Code.Engine', project['engines']['vscode']),
                  ('Microsoft.VisualStudio.Code.ExtensionKind', ','.join(project['extensionKind']))]
    return u'''<?xml version="1.0" encoding="utf-8"?>
<PackageManifest Version="2.0.0" xmlns="http://schemas.microsoft.com/developer/vsx-schema/2011">
  <Metadata>
    <Identity Language="en-US" Id=%s Version=%s Publisher=%s/>
    <DisplayName>%s</DisplayName>
    <Description xml:space="preserve">%s</Description>
    <Categories>%s</Categories>
    <License>extension/LICENSE.txt</License>
    <Properties>
%s    </Properties>
  </Metadata>
  <Installation>
    <InstallationTarget Id="Microsoft.VisualStudio.Code"/>
  </Installation>
  <Dependencies/>
  <Assets>
%s  </Assets>
</PackageManifest>
''' % (quoteattr(project['name']), quoteattr(project['version']), quoteattr(project['publisher']),
       escape(project['displayName']), escape(project['description']),
       escape(','.join(project['categories'])),
       ''.join(['      <Property Id=%s Value=%s/>\n' % (quoteattr(name), quoteattr(value))
                for name, value in properties]),
       ''.join(['    <Asset Type=%s Path=%s Addressable="true"/>\n' % (
           quoteattr(kind), quoteattr(path)) for kind, path in _ASSETS]))


def _content_types():
    return '''<?xml version="1.0" encoding="utf-8"?>
<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">
%s</Types>
''' % ''.join(['  <Default Extension=".%s" ContentType="%s"/>\n' % kind
               for kind in sorted(_TYPES.items())])


def _read(path):
    source = open(path, 'rb')
    try:
        return source.read()
    finally:
        source.close()


def main(folder):
    folder = os.path.abspath(folder)
    try:
        if not os.path.isdir(folder):
            os.makedirs(folder)
        print(make(folder))
    except EnvironmentError, error:
        sys.exit('morvik: could not make the package: %s' % error)


if __name__ == '__main__':
    main(*sys.argv[1:])
