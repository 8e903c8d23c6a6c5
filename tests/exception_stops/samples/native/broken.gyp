{'targets': [{'target_name': 'a', 'type': 'none', 'dependencies': ['nosuch']}]}
