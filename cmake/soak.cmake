# Clients that come and go while a service is at work.
add_graded_test(soak TIMEOUT 300 LONG_TIMEOUT 3000 COMMAND morvik-python tests/soak/soak.py)
