#!/usr/bin/python3
"""What one look of `dunrasttctl status --plugin` costs in CPU time, beside check_procs and check_tcp of Debian's
monitoring-plugins, among the processes that are there. Prints JSON: milliseconds, and kB of memory."""
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


def cost(words, rounds):
    """The median of CPU time in ms."""
    times = []
    for _ in range(rounds):
        child = subprocess.Popen([str(word) for word in words], stdout=subprocess.DEVNULL)
        _, status, used = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        times.append((used.ru_utime + used.ru_stime) * 1000)
    return statistics.median(times)


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
        tool = options.build / "dunrasttctl"
        look = tool, "-f", config, "status", "--plugin"
        status, memory = cost(look, options.rounds), peak(look)
        procs = cost([options.plugins + "check_procs", "-C", "python3", "-c", "1:"], options.rounds)
        tcp = cost([options.plugins + "check_tcp", "-H", "127.0.0.1", "-p", number], options.rounds)
    print(json.dumps({"status": status, "memory": memory, "check_procs": procs, "check_tcp": tcp}))


if __name__ == "__main__":
    main()
