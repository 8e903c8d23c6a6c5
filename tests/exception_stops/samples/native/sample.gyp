{
  'variables': {'name%': 'greet', 'words': ['one', 'two']},
  'target_defaults': {
    'default_configuration': 'Debug',
    'configurations': {'Debug': {'cflags': ['-g']}, 'Release': {'cflags': ['-O2']}},
  },
  'targets': [
    {
      'target_name': 'words', 'type': 'static_library', 'sources': ['words.c'],
      'direct_dependent_settings': {'include_dirs': ['.'], 'defines': ['<(name)=1']},
    },
    {
      'target_name': 'hello', 'type': 'executable', 'sources': ['main.c', '<@(words)'],
      'sources!': ['one', 'two'], 'dependencies': ['words'],
      'conditions': [['OS=="linux"', {'libraries': ['-lm']}, {'defines': ['ELSEWHERE']}]],
      'actions': [{
        'action_name': 'make', 'inputs': ['words.c'], 'outputs': ['<(INTERMEDIATE_DIR)/made.c'],
        'action': ['cp', '<@(_inputs)', '<@(_outputs)'],
      }],
    },
  ],
}
