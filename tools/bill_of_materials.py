"""The bill of materials of a package, as SPDX 2.3 (spdx.github.io/spdx-spec/v2.3): which libraries
are in the program, in which versions, and the sums of what was linked and of what is handed out."""

import hashlib
import json
import time

UNKNOWN = "NOASSERTION"
DOCUMENT, PROGRAM = "SPDXRef-DOCUMENT", "SPDXRef-Package-morva-chrome-host"


def checksums(file, *algorithms):
    return [{"algorithm": each.upper(),
             "checksumValue": hashlib.new(each, file.read_bytes()).hexdigest()}
            for each in algorithms]


def component_entry(component):
    entry = {"SPDXID": f"SPDXRef-Package-{component.name}", "name": component.name,
             "versionInfo": component.version, "downloadLocation": UNKNOWN, "filesAnalyzed": False,
             "licenseConcluded": UNKNOWN, "licenseDeclared": component.licence,
             "copyrightText": UNKNOWN}
    if component.source:
        return entry | {"packageFileName": component.source.name,
                        "checksums": checksums(component.source, "sha256")}
    locator = f"pkg:deb/debian/{component.package}@{component.version.replace('+', '%2B')}"
    return entry | {"externalRefs": [{"referenceCategory": "PACKAGE-MANAGER",
                                      "referenceType": "purl", "referenceLocator": locator}]}


def file_entry(number, name, file):
    return {"SPDXID": f"SPDXRef-File-{number}", "fileName": f"./{name}",
            "checksums": checksums(file, "sha1", "sha256"), "licenseConcluded": UNKNOWN,
            "licenseInfoInFiles": [UNKNOWN], "copyrightText": UNKNOWN}


def write(output, version, epoch, delivered, linked):
    """`delivered` are the files that are handed out, `linked` is each component with its files."""
    entries, relations = [], [(DOCUMENT, "DESCRIBES", PROGRAM)]

    def add(name, file):
        entries.append(file_entry(len(entries) + 1, name, file))
        return entries[-1]["SPDXID"]

    for file in delivered:
        relations.append((add(file.name, file), "GENERATED_FROM", PROGRAM))
    packages = [{"SPDXID": PROGRAM, "name": "morva-chrome-host", "versionInfo": version,
                 "supplier": "Organization: Quenlark", "downloadLocation": UNKNOWN,
                 "filesAnalyzed": False, "licenseConcluded": UNKNOWN, "licenseDeclared": UNKNOWN,
                 "copyrightText": UNKNOWN}]
    for component, files in linked.items():
        packages.append(component_entry(component))
        own = packages[-1]["SPDXID"]
        relations.append((PROGRAM, "STATIC_LINK", own))
        for file in files if component.package else ():
            found = add(file.relative_to("/"), file)
            relations += [(PROGRAM, "STATIC_LINK", found), (found, "EXPANDED_FROM_ARCHIVE", own)]
    digest = hashlib.sha256(json.dumps(entries).encode()).hexdigest()
    output.write_text(json.dumps({
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": DOCUMENT,
        "name": f"morva-chrome-host-{version}",
        "documentNamespace": f"https://morva.invalid/spdx/{digest}",
        "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(epoch)),
                         "creators": ["Organization: Quenlark", "Tool: tools/package.py"]},
        "hasExtractedLicensingInfos": [
            {"licenseId": f"LicenseRef-{each.name}", "extractedText": each.notice.read_text()}
            for each in linked if "LicenseRef" in each.licence],
        "packages": packages, "files": entries,
        "relationships": [{"spdxElementId": one, "relationshipType": kind,
                           "relatedSpdxElement": other} for one, kind, other in relations],
    }, indent=1) + "\n")
