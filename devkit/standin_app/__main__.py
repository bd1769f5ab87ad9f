"""python3 -m standin_app --appdata FOLDER [--under-wine]"""

from __future__ import annotations

import argparse
import asyncio
import secrets
import signal
import time
from pathlib import Path

from .command_channel import FINDINGS, CommandChannel
from .instance_files import announced


async def serve(appdata: Path, under_wine: bool) -> None:
    stop = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        asyncio.get_running_loop().add_signal_handler(number, stop.set)
    token = secrets.token_hex(32)
    server = await asyncio.start_server(CommandChannel(token).serve, "127.0.0.1", 0)
    port = server.sockets[0].getsockname()[1]
    with announced(appdata, port, token, int(time.time() * 1000), under_wine):
        print(f"ready on port {port}", flush=True)
        await stop.wait()
    server.close()
    for finding in FINDINGS.take():
        print(f"{finding.side}: {finding.text}", flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(prog="standin_app", description=__doc__)
    parser.add_argument("--appdata", type=Path, required=True, help="the host's %%APPDATA%%")
    parser.add_argument("--under-wine", action="store_true", help="the host runs under Wine")
    options = parser.parse_args()
    asyncio.run(serve(options.appdata, options.under_wine))


if __name__ == "__main__":
    main()
