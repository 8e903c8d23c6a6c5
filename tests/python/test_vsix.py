"""The extension for VS Code as ./morvik vsix packs it."""

import glob
import json
import os
import re
import subprocess
import sys
import xml.dom.minidom
import zipfile

import dap_session

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SOURCES = os.path.join(TOP, 'editors', 'vscode')


class VsixTest(dap_session.TestCase):

    def pack(self, folder='packages'):
        process = subprocess.Popen(
            [sys.executable, '-E', '-B', os.path.join(TOP, 'tools', 'make_vsix.py'),
             os.path.join(self.folder, folder)], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate()
        self.assertEqual((re.sub(r'\[\d+ refs\]\n', '', err), process.returncode), ('', 0))
        return out[:-1]

    def packed(self):
        """The text of each file in the package by its name."""
        archive = zipfile.ZipFile(self.pack())
        self.assertEqual(archive.testzip(), None)
        return dict([(name, archive.read(name)) for name in archive.namelist()])

    def test_its_name_has_the_version_of_the_extension(self):
        manifest = json.load(open(os.path.join(SOURCES, 'package.json')))
        self.assertEqual(os.path.basename(self.pack()), 'sorrel-%(version)s.vsix' % manifest)

    def test_it_holds_the_extension_and_nothing_else(self):
        packed = self.packed()
        manifest = json.loads(packed['extension/package.json'])
        needed = set()
        coming = [os.path.normpath('extension/' + manifest['main'])]
        while coming:
            name = coming.pop()
            needed.add(name)
            coming += [name for name in [
                'extension/%s.js' % word
                for word in re.findall(r"require\('\./(\w+)'\)", packed[name])]
                if name not in needed]
        self.assertEqual(sorted(packed), sorted(
            ['[Content_Types].xml', 'extension.vsixmanifest', 'extension/LICENSE.txt',
             'extension/README.md', 'extension/morvik.json', 'extension/package.json']
            + list(needed)))
        for path in glob.glob(SOURCES + '/*'):
            self.assertEqual(packed['extension/' + os.path.basename(path)], open(path).read())

    def test_it_remembers_the_checkout(self):
        self.assertEqual(json.loads(self.packed()['extension/morvik.json']),
                         {'morvik': os.path.join(TOP, 'morvik')})

    def test_its_manifest_says_what_the_extension_says(self):
        packed = self.packed()
        manifest = json.loads(packed['extension/package.json'])
        described = xml.dom.minidom.parseString(packed['extension.vsixmanifest'])
        identity, = described.getElementsByTagName('Identity')
        self.assertEqual([identity.getAttribute(name) for name in 'Id', 'Version', 'Publisher'],
                         [manifest[name] for name in 'name', 'version', 'publisher'])
        properties = dict([(item.getAttribute('Id').split('.')[-1], item.getAttribute('Value'))
                           for item in described.getElementsByTagName('Property')])
        self.assertEqual(properties, {'Engine': manifest['engines']['vscode'],
                                      'ExtensionKind': 'workspace'})
        assets = [item.getAttribute('Path') for item in described.getElementsByTagName('Asset')]
        self.assertEqual([path for path in assets if path not in packed], [])
        types = xml.dom.minidom.parseString(packed['[Content_Types].xml'])
        known = [item.getAttribute('Extension') for item in types.getElementsByTagName('Default')]
        self.assertEqual(sorted(known), sorted(set(
            os.path.splitext(name)[1] for name in packed if name != '[Content_Types].xml')))

    def test_it_is_the_same_each_time(self):
        first = open(self.pack(), 'rb').read()
        self.assertEqual(open(self.pack('others'), 'rb').read(), first)

    def test_a_folder_that_cannot_be_made(self):
        path = self.script('', 'a_file')
        process = subprocess.Popen(
            [sys.executable, '-E', '-B', os.path.join(TOP, 'tools', 'make_vsix.py'), path + '/x'],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate()
        self.assertEqual((out, re.sub(r'\[\d+ refs\]\n', '', err), process.returncode), (
            '', "morvik: could not make the package: [Errno 20] Not a directory: '%s/x'\n" % path,
            1))
