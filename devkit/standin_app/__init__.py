"""A stand-in for the desktop application: announces itself and answers commands."""
