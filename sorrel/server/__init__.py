"""The front end for editors, in the program: the service in the Debug Adapter Protocol's words.

Here is what the network thread and a stopped thread share; what only one of them runs is in its
own package.
"""
