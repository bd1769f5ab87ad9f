"""The import check must find what only the build machine has, and let Windows' own pass."""

import subprocess
import sys

import check_imports
import pytest

# Needs the compiler's own library, which is a DLL unless one asks for another.
SOURCE = "#include <string>\nint main(int n, char** v) { return std::stoi(v[n - 1]); }\n"


def check(folder, source, *options):
    """The program that these options make, its foreign libraries, and the check's own run."""
    (folder / "program.cpp").write_text(source)
    program = folder / "program.exe"
    subprocess.run(["x86_64-w64-mingw32-g++-posix", *options, "-o", program,
                    folder / "program.cpp"], check=True)
    return program, check_imports.foreign_libraries(program), subprocess.run(
        [sys.executable, check_imports.__file__, program], capture_output=True, text=True,
        check=False)


def test_windows_own_libraries_pass(tmp_path):
    program, foreign, done = check(tmp_path, SOURCE, "-static")
    assert "KERNEL32.dll" in check_imports.imported_libraries(program)
    assert (foreign, done.returncode) == ([], 0)


def test_a_library_of_the_compiler_is_found(tmp_path):
    _, foreign, done = check(tmp_path, SOURCE)
    assert "libstdc++-6.dll" in foreign and done.returncode == 1
    assert "imports libstdc++-6.dll, which Windows does not have" in done.stderr


def test_what_imports_nothing_is_no_program_of_ours(tmp_path):
    with pytest.raises(ValueError, match="no import table"):
        check(tmp_path, "int nothing;\n", "-c")
