#!/usr/bin/env python3
"""Signs a Windows program in place, when there is something to sign with: tools/signing.py FILE

The environment says with what; nothing of it is stored here:

  MORVA_SIGN_CERTIFICATE    PKCS#12 file with certificate and key; without it nothing is signed
  MORVA_SIGN_PASSWORD_FILE  file whose text is its password; without it the password is empty
  MORVA_SIGN_TIMESTAMP_URL  RFC 3161 time-stamp server; without it there is no time stamp, and the
                            signature ends with the certificate
"""

import os
import subprocess
import sys
from pathlib import Path

PUBLISHED_AS = "morva browser connection"


def is_wanted():
    return bool(os.environ.get("MORVA_SIGN_CERTIFICATE"))


def sign_command(program, output):
    command = ["osslsigncode", "sign", "-h", "sha256", "-n", PUBLISHED_AS,
               "-pkcs12", os.environ["MORVA_SIGN_CERTIFICATE"]]
    if password := os.environ.get("MORVA_SIGN_PASSWORD_FILE"):
        command += ["-readpass", password]
    if server := os.environ.get("MORVA_SIGN_TIMESTAMP_URL"):
        command += ["-ts", server]
    return [*command, "-in", str(program), "-out", str(output)]


def sign(program):
    """Replaces the file by its signed self. Raises when that fails: a package is signed or not,
    never in part."""
    signed = Path(f"{program}.signed")
    signed.unlink(missing_ok=True)  # the signer never overwrites
    done = subprocess.run(sign_command(program, signed), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{program} was not signed: {done.stdout.strip()}")
    signed.replace(program)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    if is_wanted():
        sign(Path(sys.argv[1]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
