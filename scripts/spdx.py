#!/usr/bin/env python3
"""Prints the dependencies of the built programs and libraries as an SPDX 2.3 document in JSON.

  scripts/spdx.py VERSION BUILD_DIRECTORY

Linked libraries are those that the ELF files need, with the packages and versions that dpkg reports for the files that
the dynamic linker finds. A library of headers only comes from the list below.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import uuid

BINARIES = ("vxunpack", "vxpack", "vxinfo", "vxdiff", "vxindex", "vxview", "libvxunpack.so", "libqm_formats_http.so",
            "libqm_formats_srs.so")
HEADERS_ONLY = ("nlohmann-json3-dev",)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def linked_libraries(binary):
    """Paths of the libraries that the file itself needs, without what those need."""
    needed = re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "-d", binary))
    found = dict(re.findall(r"(\S+) => (\S+) \(", run("ldd", binary)))
    return [found[name] for name in needed if name in found]


def package_of(path):
    # dpkg knows a file by the path at which it was installed, from which /lib may be a link to /usr/lib.
    real = os.path.realpath(path)
    for name in (path, real, "/usr" + path, real.removeprefix("/usr")):
        result = subprocess.run(("dpkg", "-S", name), capture_output=True, text=True)
        if result.returncode == 0:
            return result.stdout.split(": ")[0].split(",")[0].split(":")[0]
    sys.exit(f"spdx: no package has {path}")


def entry(name, version):
    return {
        "SPDXID": "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name),
        "name": name,
        "versionInfo": version,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION",
    }


def main():
    version, build = sys.argv[1], pathlib.Path(sys.argv[2])
    linked = set()
    for name in BINARIES:
        linked.update(map(package_of, linked_libraries(build / name)))
    project = entry("vxunpack", version)
    project["licenseDeclared"] = "MIT"
    project["primaryPackagePurpose"] = "APPLICATION"
    packages, relationships = [project], []

    def relate(kind, package):
        described = entry(package, run("dpkg-query", "-W", "-f", "${Version}\n", package).split("\n")[0])
        packages.append(described)
        relationships.append({
            "spdxElementId": project["SPDXID"],
            "relationshipType": kind,
            "relatedSpdxElement": described["SPDXID"],
        })

    for package in sorted(linked):
        relate("DYNAMIC_LINK", package)
    for package in HEADERS_ONLY:
        relate("CONTAINS", package)
    relationships.insert(0, {
        "spdxElementId": "SPDXRef-DOCUMENT",
        "relationshipType": "DESCRIBES",
        "relatedSpdxElement": project["SPDXID"],
    })
    content = json.dumps(packages, sort_keys=True)
    document = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"vxunpack-{version}",
        # Must be unique for each document: the same dependencies give the same one.
        "documentNamespace": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_URL, content)}",
        "creationInfo": {
            "created": run("git", "log", "-1", "--format=%cd", "--date=format-local:%Y-%m-%dT%H:%M:%SZ").strip(),
            "creators": ["Tool: vxunpack-scripts-spdx"],
        },
        "packages": packages,
        "relationships": relationships,
    }
    json.dump(document, sys.stdout, indent=2)
    print()


if __name__ == "__main__":
    os.environ["TZ"] = "UTC"
    main()
