"""The programs ``voxlith-tools`` and ``voxlith-plot``: a module for each of them and for each subcommand."""
