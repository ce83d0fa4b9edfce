#!/usr/bin/python3
"""What one look of `dunrasttctl status --plugin` costs in CPU time, beside a bare walk of what it reads
(status_floor.cpp), and check_procs and check_tcp of Debian's monitoring-plugins, among the processes that are there.
They take turns. Prints JSON: milliseconds, and kB of memory."""
import argparse
import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile

PLUGINS = "/usr/lib/nagios/plugins/"


def cost(words):
    """CPU time in ms."""
    child = subprocess.Popen([str(word) for word in words], stdout=subprocess.DEVNULL)
    _, status, used = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    return (used.ru_utime + used.ru_stime) * 1000


def peak(words):
    """The largest memory in kB. Not from wait4(2): a child of this program begins with the pages of Python."""
    found = subprocess.run(["/usr/bin/time", "-q", "-f", "%M", *map(str, words)], stdout=subprocess.DEVNULL,
                           stderr=subprocess.PIPE, check=False)
    return int(found.stderr.split()[-1])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--plugins", default=PLUGINS)
    parser.add_argument("--rounds", type=int, default=20)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="dunra-status-") as name, socket.create_server(("127.0.0.1", 0)) as port:
        number = port.getsockname()[1]
        config = pathlib.Path(name) / "agent.conf"
        config.write_text(f"PROC_NAME {pathlib.Path(sys.executable).name[:15]}\nWATCHDOG_NAME none\nBASE_PATH {name}/\n"
                          f"DEBUG_PATH {name}/\nASR_PORT {number}\n")
        look = options.build / "dunrasttctl", "-f", config, "status", "--plugin"
        reads = [config, "/etc/passwd", "/proc/meminfo", "/proc/net/netstat",
                 *(f"/proc/{os.getpid()}/{name}" for name in ("stat", "status", "limits", "fd/"))]
        works = {"status": look, "floor": (options.build / "status_floor", *reads),
                 "check_procs": (options.plugins + "check_procs", "-C", "python3", "-c", "1:"),
                 "check_tcp": (options.plugins + "check_tcp", "-H", "127.0.0.1", "-p", number)}
        times = {name: [] for name in works}
        for _ in range(options.rounds):
            for name, words in works.items():
                times[name].append(cost(words))
        found = {name: statistics.median(taken) for name, taken in times.items()}
        print(json.dumps({**found, "memory": peak(look)}))


if __name__ == "__main__":
    main()
