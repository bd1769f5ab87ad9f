"""Signing, with a certificate that lives as long as the test."""

import subprocess
import sys
import zipfile
from pathlib import Path

import package
import pytest
import signing


def openssl(*arguments):
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True)


@pytest.fixture
def certificate(tmp_path, monkeypatch):
    """A self-made certificate, as the environment names one."""
    key, public = tmp_path / "key.pem", tmp_path / "certificate.pem"
    store, password = tmp_path / "store.p12", tmp_path / "password"
    password.write_text("throw-away")
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=test",
            "-addext", "extendedKeyUsage=codeSigning", "-keyout", key, "-out", public)
    openssl("pkcs12", "-export", "-inkey", key, "-in", public, "-out", store,
            "-passout", f"file:{password}")
    monkeypatch.setenv("MORVA_SIGN_CERTIFICATE", str(store))
    monkeypatch.setenv("MORVA_SIGN_PASSWORD_FILE", str(password))
    monkeypatch.delenv("MORVA_SIGN_TIMESTAMP_URL", raising=False)
    return public


def is_signed(program, certificate):
    done = subprocess.run(["osslsigncode", "verify", "-CAfile", certificate, "-in", program],
                          capture_output=True, text=True, check=False)
    return done.returncode == 0 and "Signature verification: ok" in done.stdout


def test_program_installer_and_uninstaller_are_signed(certificate, program, version, tmp_path,
                                                      machine):
    output = tmp_path / "package"
    archive, installer, *_ = package.make_package(program, version, output)
    with zipfile.ZipFile(archive) as packed:
        (packed_program,) = [each for each in packed.namelist() if each.endswith(".exe")]
        packed.extract(packed_program, tmp_path)
    assert is_signed(tmp_path / packed_program, certificate)
    assert is_signed(installer, certificate)

    assert machine.install(installer) == 0
    assert is_signed(machine.uninstaller, certificate)
    assert is_signed(machine.program(version), certificate)
    machine.uninstall()


def test_a_wrong_password_makes_no_package(certificate, program, version, tmp_path, monkeypatch):
    wrong = tmp_path / "wrong"
    wrong.write_text("not the password")
    monkeypatch.setenv("MORVA_SIGN_PASSWORD_FILE", str(wrong))
    with pytest.raises(RuntimeError, match="was not signed"):
        package.make_package(program, version, tmp_path / "package")


def test_without_a_certificate_a_file_stays_as_it_is(tmp_path, monkeypatch):
    monkeypatch.delenv("MORVA_SIGN_CERTIFICATE", raising=False)
    file = tmp_path / "program.exe"
    file.write_bytes(b"MZ")
    tool = Path(signing.__file__)
    subprocess.run([sys.executable, tool, file], check=True)
    assert file.read_bytes() == b"MZ"
