#!/usr/bin/env python3
"""Checks that a Windows program asks for nothing but Windows itself: tools/check_imports.py FILE...

A library of the compiler (libstdc++-6.dll, libwinpthread-1.dll) is on the machine that built the
program and on no other, so that its absence shows only at the user's. And a library that Windows
does not have is looked for in the program's own folder, where somebody else could put it.
"""

import re
import subprocess
import sys

OBJDUMP = "x86_64-w64-mingw32-objdump"

# In every 64-bit Windows since version 10, and documented. The program may use more of them than it
# does; each new one is a deliberate line here.
WINDOWS_LIBRARIES = frozenset("""
    advapi32.dll bcrypt.dll comdlg32.dll crypt32.dll gdi32.dll iphlpapi.dll kernel32.dll msvcrt.dll
    ntdll.dll ole32.dll oleaut32.dll psapi.dll rpcrt4.dll shell32.dll shlwapi.dll user32.dll
    userenv.dll version.dll winhttp.dll ws2_32.dll
""".split())


def imported_libraries(program):
    """The names of the libraries that the program is linked with, as they are written in it."""
    listing = subprocess.run([OBJDUMP, "-p", str(program)], capture_output=True, text=True,
                             check=True).stdout
    return re.findall(r"^\s*DLL Name: (.+?)\s*$", listing, re.MULTILINE)


def foreign_libraries(program):
    """What the program imports that is not Windows' own. Raises when it imports nothing at all:
    then it is not what we think it is."""
    imported = imported_libraries(program)
    if not imported:
        raise ValueError(f"{program}: no import table")
    return [name for name in imported if name.lower() not in WINDOWS_LIBRARIES]


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    foreign = {program: foreign_libraries(program) for program in sys.argv[1:]}
    for program, names in foreign.items():
        for name in names:
            print(f"{program}: imports {name}, which Windows does not have", file=sys.stderr)
    return 1 if any(foreign.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
