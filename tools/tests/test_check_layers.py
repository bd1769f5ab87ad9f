"""The layer check must be able to fail, and must not cry wolf."""

import check_layers
import pytest

GOOD = {
    "platform/clock.h": "#include <cstdint>\n",
    "platform/win/clock_win.cpp": '#include "platform/clock.h"\n#include <windows.h>\n',
    "text/utf8.h": "#include <string>\n",
    "screening/screen.h": '#include "text/utf8.h"\n',
    "channel/framing.h": '#include "platform/clock.h"\n',
    "agent/launch.h": '#include "channel/framing.h"\n',
    "chat/turn.h": '#include "agent/launch.h"\n#include "screening/screen.h"\n',
    "host/main.cpp": '#include "chat/turn.h"\n#include "channel/framing.h"\n',
}


def breaches(tmp_path, changes):
    for name, text in {**GOOD, **changes}.items():
        path = tmp_path / "src" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    return check_layers.check(tmp_path)


def test_a_good_tree_has_no_breach(tmp_path):
    assert breaches(tmp_path, {}) == []


NOTHING = "#include <string>\n"


@pytest.mark.parametrize("name, text, wanted", [
    ("platform/files.h", '#include "common/ids.h"\n', "is no file"),
    ("agent/scan.h", '#include "chat/turn.h"\n', "agent must not include chat"),
    ("agent/ipc.h", '#include "screening/screen.h"\n', "agent must not include screening"),
    ("screening/log.h", '#include "channel/framing.h"\n',
     "screening must not include channel"),
    ("chat/shell.h", '#include "shell/open.h"\n', "is no file"),
    ("channel/late.h", '#include "host/reader.h"\n', "is no file"),
    ("text/wide.h", '#include "utf8.h"\n', "written from src/"),
    ("text/wide.h", "#ifdef _WIN32\n#endif\n", "tests for the system"),
    ("text/wide.h", "#if defined(_WIN32) && 1\n#endif\n", "tests for the system"),
    ("text/wide.h", "#include <windows.h>\n", "belongs into platform/win/"),
    ("platform/posix/x_posix.cpp", "#include <WinSock2.h>\n", "belongs into platform/win/"),
    ("chat/turn.cpp", "#include <yyjson.h>\n", "is seen by text/json_view.cpp alone"),
    ("extras/x.h", '#include "text/utf8.h"\n', "no layer"),
])
def test_a_breach_is_found(tmp_path, name, text, wanted):
    found = breaches(tmp_path, {name: text})
    assert len(found) == 1 and wanted in found[0], found
    assert name in found[0]


@pytest.mark.parametrize("changes, wanted", [
    ({"host/reader.h": NOTHING, "channel/late.h": '#include "host/reader.h"\n'},
     'src/channel/late.h:1: channel must not include host ("host/reader.h")'),
    ({"toolserver/route.h": NOTHING, "chat/speech.h": '#include "toolserver/route.h"\n'},
     "src/chat/speech.h:1: chat must not include toolserver"),  # they stand beside each other
    ({"agent/one.h": '#include "agent/two.h"\n', "agent/two.h": '#include "agent/three.h"\n',
      "agent/three.h": '#include "agent/one.h"\n'}, "a circle of includes: agent/"),
])
def test_a_breach_between_files_is_found(tmp_path, changes, wanted):
    found = breaches(tmp_path, changes)
    assert len(found) == 1 and found[0].startswith(wanted), found
