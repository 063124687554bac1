"""Pictures of a run of VoxLith: how it converged, how it fits the data, what it found.

formats reads every file of a run, run says which files of a folder belong together, the modules named after pictures
draw them, and command is the command line.
"""
