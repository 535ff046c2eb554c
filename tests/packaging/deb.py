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
    """Makes the packages in a folder and returns the path of syslogmon's; beside it lies that of syslogmon-snmp."""
    done = subprocess.run(["cpack", "-G", "DEB", "-B", folder], cwd=build_folder(), capture_output=True,
                          text=True)
    if done.returncode != 0:
        sys.exit(f"cpack ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    (package,) = Path(folder).glob("syslogmon_*.deb")
    return package


def newer_version(package, version):
    """A copy of a package that calls itself another version."""
    return _changed(package, version, lambda tree: None)


def with_drop_ins(package, version):
    """A copy that brings the files of rsyslog and logrotate, as earlier versions did."""
    def change(tree):
        named = {"rsyslog.conf": "etc/rsyslog.d/syslogmon.conf", "logrotate.conf": "etc/logrotate.d/syslogmon"}
        for name, place in named.items():
            (tree / place).parent.mkdir(parents=True)
            (tree / "usr/share/syslogmon" / name).rename(tree / place)
        (tree / "DEBIAN/conffiles").write_text("".join(f"/{place}\n" for place in named.values()))
    return _changed(package, version, change)


def _changed(package, version, change):
    tree = package.parent / f"tree-{version}"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN" / "control"
    lines = control.read_text().splitlines()
    lines = [f"Version: {version}" if line.startswith("Version: ") else line for line in lines]
    control.write_text("\n".join(lines) + "\n")
    change(tree)
    changed = package.parent / f"syslogmon_{version}.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, changed], check=True,
                   capture_output=True)
    return changed
