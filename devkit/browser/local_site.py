"""Serves pages on loopback, for the agent to work on."""

from __future__ import annotations

import functools
import threading
from collections.abc import Sequence
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from types import TracebackType
from urllib.parse import urlsplit

PAGES = Path(__file__).resolve().parents[1] / "site"


class _Handler(SimpleHTTPRequestHandler):
    def __init__(self, *args: object, folders: Sequence[Path], **members: object) -> None:
        self._folders = folders
        super().__init__(*args, directory=str(folders[0]), **members)  # type: ignore[arg-type]

    def translate_path(self, path: str) -> str:
        """The file in the first folder that has it. Only names, so nothing outside is served."""
        name = Path(urlsplit(path).path).name or "index.html"
        found = (folder / name for folder in self._folders if (folder / name).is_file())
        return str(next(found, self._folders[0] / name))

    def end_headers(self) -> None:
        self.send_header("Cache-Control", "no-store")
        super().end_headers()

    def log_message(self, format: str, *args: object) -> None:
        pass


class LocalSite:
    """The pages of some folders while it is entered; `url` is where they are."""

    def __init__(self, *folders: Path) -> None:
        handler = functools.partial(_Handler, folders=[PAGES, *folders])
        self._server = ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self._server.daemon_threads = True
        self.port = self._server.server_address[1]
        self.url = f"http://127.0.0.1:{self.port}"
        # Another origin with the same pages, for frames.
        self.other_url = f"http://localhost:{self.port}"

    def __enter__(self) -> LocalSite:
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        return self

    def __exit__(
        self,
        _type: type[BaseException] | None,
        _value: BaseException | None,
        _trace: TracebackType | None,
    ) -> None:
        self._server.shutdown()
        self._server.server_close()
