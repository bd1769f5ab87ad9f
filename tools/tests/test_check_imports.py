"""The import check must find what only the build machine has, and let Windows' own pass."""

import subprocess
import sys
from pathlib import Path

import pytest

TOOLS = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOOLS))
import check_imports  # noqa: E402

# Needs the compiler's own library, which is a DLL unless one asks for another.
SOURCE = "#include <string>\nint main(int n, char** v) { return std::stoi(v[n - 1]); }\n"


@pytest.fixture(scope="module")
def build(tmp_path_factory):
    folder = tmp_path_factory.mktemp("programs")
    (folder / "program.cpp").write_text(SOURCE)

    def link(*options):
        program = folder / f"program{len(options)}.exe"
        subprocess.run(["x86_64-w64-mingw32-g++-posix", *options, "-o", program,
                        folder / "program.cpp"], check=True)
        return program

    return link


def check(program):
    return subprocess.run([sys.executable, TOOLS / "check_imports.py", program],
                          capture_output=True, text=True, check=False)


def test_windows_own_libraries_pass(build):
    program = build("-static")
    assert "KERNEL32.dll" in check_imports.imported_libraries(program)
    assert check_imports.foreign_libraries(program) == []
    assert check(program).returncode == 0


def test_a_library_of_the_compiler_is_found(build):
    program = build()
    assert "libstdc++-6.dll" in check_imports.foreign_libraries(program)
    done = check(program)
    assert done.returncode == 1
    assert "imports libstdc++-6.dll, which Windows does not have" in done.stderr


def test_what_imports_nothing_is_no_program_of_ours(tmp_path, build):
    stub = tmp_path / "nothing.o"
    (tmp_path / "nothing.cpp").write_text("int nothing;\n")
    subprocess.run(["x86_64-w64-mingw32-g++-posix", "-c", "-o", stub, tmp_path / "nothing.cpp"],
                   check=True)
    with pytest.raises(ValueError, match="no import table"):
        check_imports.foreign_libraries(stub)
