{'targets': [
