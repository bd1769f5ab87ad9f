"""What of others goes into the Windows program: versions, licences, notices, and the files of it.

The linker's map says what was taken from where. A file of which the table below does not know whose
it is, and so no notice either, stops the packaging.
"""

import json
import re
import subprocess
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

# What the project itself makes, from the build's folder.
OWN = ("CMakeFiles/morva-chrome-host.dir", "libmorva_core.a", "delay_load")


@dataclass(frozen=True)
class Component:
    name: str
    version: str
    licence: str  # an SPDX expression; LicenseRef-NAME is its notice
    notice: Path
    places: tuple[Path, ...]  # files, and folders with all that lies below them
    source: Path | None = None  # the archive that it was taken from
    package: str = ""  # else the Debian package that is installed


def known_components(root, build):
    """In the order in which they are asked whether a file is theirs."""
    deps = (root / "build" / "deps").resolve()
    versions = {each["name"]: each["version"]
                for each in json.loads((root / "vcpkg.json").read_text())["overrides"]}

    def fetched(name, notice, archive, *places):
        (source,) = deps.glob(archive)
        return Component(name, versions[name], "MIT", deps / notice, places, source)

    def installed(name, licence, package, *places):
        version = subprocess.run(["dpkg-query", "-W", "-f=${Version}", package],
                                 capture_output=True, text=True, check=True).stdout
        return Component(name, version, licence, Path("/usr/share/doc", package, "copyright"),
                         tuple(map(Path, places)), package=package)

    mingw, libraries = "mingw-w64-x86-64-dev", "/usr/x86_64-w64-mingw32/lib"
    return (
        fetched("nlohmann-json", "usr/share/doc/nlohmann-json3-dev/copyright",
                "nlohmann-json3-dev_*.deb", deps / "usr" / "include" / "nlohmann"),
        fetched("yyjson", f"yyjson-{versions['yyjson']}/LICENSE", "yyjson_*.orig.tar.*",
                deps / f"yyjson-{versions['yyjson']}", build / "libyyjson.a"),
        installed("gcc-runtime", "GPL-3.0-or-later WITH GCC-exception-3.1",
                  "gcc-mingw-w64-x86-64-posix", "/usr/lib/gcc/x86_64-w64-mingw32"),
        installed("winpthreads", "MIT AND BSD-3-Clause", mingw, f"{libraries}/libwinpthread.a",
                  f"{libraries}/libpthread.a"),
        installed("mingw-w64", "ZPL-2.1 AND LicenseRef-mingw-w64", mingw, libraries,
                  "/usr/share/mingw-w64/include"),
    )


def files_in_map(text):
    """What the linker took: object files, and the libraries that it took members from."""
    title, members, *_ = text.split("\n\n")
    assert title.startswith("Archive member included")
    objects = re.findall(r"^LOAD (?!dll stuff$)(.+)(?<!\.a)$", text, re.MULTILINE)
    return {*objects, *re.findall(r"^(\S.*?)\(", members, re.MULTILINE)}


def owner(file, known):
    return next((each for each in known
                 if any(file.is_relative_to(place) for place in each.places)), None)


def linked_components(program, root):
    """Each component with those of its files that the linker took, none where it is only headers.
    Raises when somebody's file is linked of whom no notice is known."""
    build = program.resolve().parent
    known = known_components(root, build)
    found = defaultdict(set, {each: set() for each in known if each.name == "nlohmann-json"})
    unknown = []
    for name in files_in_map(program.with_suffix(".map").read_text()):
        file = (build / name).resolve()
        if component := owner(file, known):
            found[component].add(file)
        elif not any(file.is_relative_to(build / own) for own in OWN):
            unknown.append(str(file))
    if unknown:
        raise RuntimeError(f"linked without a notice: {', '.join(sorted(unknown))}")
    return {each: sorted(found[each]) for each in known if each in found}


def notices(linked):
    """The notices of all components, each once, under the names of those that it is for."""
    shared = defaultdict(list)
    for each in linked:
        shared[each.notice].append(f"{each.name} {each.version} ({each.licence})")
    head = ["This program contains parts of the following. Their notices follow, as they came.", ""]
    head += [f"  {title}" for titles in shared.values() for title in titles]
    line = "=" * 100
    return "\n".join([*head, *(f"\n{line}\n" + "\n".join(titles) + f"\n{line}\n\n"
                               + notice.read_text(encoding="utf-8")
                               for notice, titles in shared.items())])
