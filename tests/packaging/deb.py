"""The Debian package, made from a build folder in which the target agent is built."""
import os
import subprocess
import sys
from pathlib import Path


def build_folder():
    if "SYSLOGMON_BUILD" not in os.environ:
        sys.exit("set SYSLOGMON_BUILD to a build folder in which the target agent is built")
    return Path(os.environ["SYSLOGMON_BUILD"]).resolve()


def make(folder):
    """Makes the package in a folder and returns its path."""
    done = subprocess.run(["cpack", "-G", "DEB", "-B", folder], cwd=build_folder(), capture_output=True,
                          text=True)
    if done.returncode != 0:
        sys.exit(f"cpack ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    (package,) = Path(folder).glob("*.deb")
    return package


def newer_version(package, version):
    """A copy of a package that calls itself another version."""
    tree = package.parent / "tree"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN" / "control"
    lines = control.read_text().splitlines()
    lines = [f"Version: {version}" if line.startswith("Version: ") else line for line in lines]
    control.write_text("\n".join(lines) + "\n")
    newer = package.parent / f"syslogmon_{version}.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, newer], check=True,
                   capture_output=True)
    return newer
