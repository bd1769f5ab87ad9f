"""python3 -m standin_agent --port 8090 --scenario NAME --tokens-per-second N --fault NAME ..."""

from __future__ import annotations

import argparse
import asyncio
import errno
import signal
import sys
from collections.abc import Sequence

from aiohttp import web

from .fault_table import FAULT_NAMES, parse_fault
from .protocol_watch import report
from .scenarios import SCENARIOS
from .server_app import make_app
from .server_state import ServerState, Settings

EXIT_PORT_TAKEN = 3
EXIT_OFF_PROTOCOL = 4


def parse_arguments(arguments: Sequence[str] | None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="standin_agent", description=__doc__)
    parser.add_argument("--port", type=int, default=8090, help="0 takes any free one")
    parser.add_argument("--scenario", choices=SCENARIOS, default="hello")
    parser.add_argument(
        "--tokens-per-second", type=float, default=0, metavar="N", help="0 is as fast as possible"
    )
    parser.add_argument(
        "--fault",
        action="append",
        default=[],
        type=parse_fault,
        metavar="NAME[=VALUE]",
        help=", ".join(FAULT_NAMES),
    )
    return parser.parse_args(arguments)


async def serve(port: int, settings: Settings) -> int:
    stop = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        asyncio.get_running_loop().add_signal_handler(number, stop.set)
    state = ServerState(settings)
    runner = web.AppRunner(make_app(state), access_log=None)
    await runner.setup()
    # What is still open when the end comes is cut off: nobody waits for it.
    site = web.TCPSite(runner, "127.0.0.1", port, shutdown_timeout=0.1)
    try:
        await site.start()
    except OSError as error:
        if error.errno != errno.EADDRINUSE:
            raise
        print(f"stand-in agent: port {port} is taken", file=sys.stderr)
        return EXIT_PORT_TAKEN
    print(f"ready on port {runner.addresses[0][1]}", flush=True)
    await stop.wait()
    state.end_everything()
    await runner.cleanup()
    faults = report()
    print(faults, flush=True)
    return EXIT_OFF_PROTOCOL if faults else 0


def main(arguments: Sequence[str] | None = None) -> int:
    options = parse_arguments(arguments)
    settings = Settings(options.scenario, options.tokens_per_second, dict(options.fault))
    return asyncio.run(serve(options.port, settings))


if __name__ == "__main__":
    sys.exit(main())
