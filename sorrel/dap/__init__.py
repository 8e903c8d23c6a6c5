"""The front end for editors: the service spoken to in the Debug Adapter Protocol."""
