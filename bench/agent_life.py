#!/usr/bin/python3
"""Measures the whole agent, and monit doing the same, among the processes that run here; scripts/bench runs it.

One of its measurements is named on the command line; the figures go to standard output as JSON. It is meant to
run in a pid namespace of its own, so that both programs see the same process table in every run (see crowd.cpp).
"""
import argparse
import json
import os
import pathlib
import re
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

TREE = pathlib.Path(__file__).resolve().parent.parent
PEERS = TREE / "tests/peers"
ENGINE = "bench_engine"
AGENT = "bench_agent"
LIBRARIES = ("libcurl", "libssl", "libcrypto")

START_SCRIPT = """#!/bin/sh
home=$(dirname "$0")
date +%s.%N > "$home/started.part"
mv "$home/started.part" "$home/started"
[ "$1" = dead ] && exit
"$home/ENGINE" 100000 > /dev/null 2>&1 &
echo $! > "$home/engine.pid"
"""


def wait_for(condition, what, limit=60.0):
    end = time.monotonic() + limit
    while not (result := condition()):
        if time.monotonic() > end:
            raise RuntimeError("waited in vain for " + what)
        time.sleep(0.002)
    return result


def cpu_seconds(pid):
    """What the process and all its threads, those that ended too, have used."""
    return time.clock_gettime((~pid << 3) | 2)


def memory(pid):
    """Private and proportional kilobytes, those of the linked libraries, and the number of threads."""
    figures = {"private": 0, "pss": 0, "libraries": 0, "libraries_private": 0}
    library = False
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        key, _, value = line.partition(":")
        if re.match(r"[0-9a-f]+-[0-9a-f]+ ", line):
            library = any(name in line for name in LIBRARIES)
        elif key in ("Private_Clean", "Private_Dirty", "Pss"):
            kilobytes = int(value.split()[0])
            figures["pss" if key == "Pss" else "private"] += kilobytes
            if library:
                figures["libraries" if key == "Pss" else "libraries_private"] += kilobytes
    figures["threads"] = len(os.listdir(f"/proc/{pid}/task"))
    return figures


class Stage:
    """A folder with an engine stand-in, its start script, the agent's and monit's configuration."""

    def __init__(self, build, period=5, method="start", alarms=None):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="agent-life-"))
        self.processes = []
        (self.home / ENGINE).symlink_to(shutil.which("sleep"))
        (self.home / AGENT).symlink_to(build / "DunraSTT_Admin")
        script = self.home / "start.sh"
        script.write_text(START_SCRIPT.replace("ENGINE", ENGINE))
        script.chmod(0o755)
        for name in ("to.txt", "cc.txt", "bcc.txt"):
            (self.home / name).write_text("Operator operator@example.com\n" if name == "to.txt" else "")
        keys = {"PROC_NAME": ENGINE, "WATCHDOG_NAME": AGENT, "BASE_PATH": f"{self.home}/", "DEBUG_PATH": f"{self.home}/",
                "ASR_PORT": 1, "SHELL_FILE": "./start.sh", "SHELL_METHOD": method, "SVC_PID_FILE": "./engine.pid",
                "ADM_PID_FILE": "./agent.pid", "TOUCH_ADMIN_FILE": "./agent.lock", "RECEIVER_FILE": "./to.txt",
                "REFERENCE_FILE": "./cc.txt", "BLIND_FILE": "./bcc.txt", "RESTART_CHECK": 1,
                "RESTART_CHECK_SEC": period, "CPU_OVER_VALUE": 1000, "MEM_OVER_VALUE": 1000, "CH_OVER_VALUE": 1000,
                "WATCH_SAVE": 1, "WATCH_PATH": "./log/", "HANG_PATH": "./log/", "LOG_LEVEL": 3, **(alarms or {})}
        self.write("agent.conf", "".join(f"{key}\t{value}\n" for key, value in keys.items()))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.kill()
        for process in self.processes:
            process.wait()
        self.kill_engine()
        shutil.rmtree(self.home)

    def write(self, name, text, mode=0o600):
        path = self.home / name
        path.write_text(text)
        path.chmod(mode)
        return path

    def run(self, *words, out="/dev/null", **environment):
        with open(out, "wb") as stream:
            process = subprocess.Popen([str(word) for word in words], stdout=stream, stderr=subprocess.DEVNULL,
                                       stdin=subprocess.DEVNULL, env={**os.environ, **environment})
        self.processes.append(process)
        return process

    def start_engine(self):
        subprocess.run([self.home / "start.sh", "start"], check=True)
        (self.home / "started").unlink()

    def kill_engine(self):
        """When the kill was sent; the engine is gone from the process table when this returns."""
        try:
            pid = int((self.home / "engine.pid").read_text())
        except (OSError, ValueError):
            return time.time()
        killed = time.time()
        try:
            os.kill(pid, 9)
        except ProcessLookupError:
            return killed
        while pathlib.Path(f"/proc/{pid}").exists():
            time.sleep(0.001)
        return killed

    def started(self):
        """When the start script ran, once it has."""
        try:
            return float((self.home / "started").read_text())
        except (OSError, ValueError):
            return None

    def start_agent(self, **environment):
        return self.run(self.home / AGENT, "-f", self.home / "agent.conf", **environment)

    def log(self):
        return "".join(path.read_text() for path in sorted(self.home.glob("log/*/MAIN.LOG")))

    def ticks(self):
        """The times at which the agent's ticks began, in seconds since the epoch."""
        moments = re.findall(r"^\[([^\]]*):(\d{3})\].*send_timer Process Time", self.log(), re.MULTILINE)
        return [time.mktime(time.strptime(second, "%Y/%m/%d %H:%M:%S")) + int(milliseconds) / 1000
                for second, milliseconds in moments]

    def start_monit(self, cycle):
        rules = f"""set daemon {cycle}
set logfile {self.home}/monit.log
set pidfile {self.home}/monit.pid
set statefile {self.home}/monit.state
set idfile {self.home}/monit.id
check system here
  if cpu usage > 1000% then alarm
check process engine matching "{ENGINE}"
  start program = "{self.home}/start.sh start"
  if total memory > 100000 MB then alarm
  if total cpu > 1000% then alarm
"""
        return self.run("monit", "-I", "-c", self.write("monitrc", rules, 0o600))


def measure_cpu(options):
    """CPU of 100 ticks, and memory, of both programs side by side."""
    with Stage(options.build, period=5) as stage:
        stage.start_engine()
        agent, monit = stage.start_agent(), stage.start_monit(5)
        wait_for(lambda: len(stage.ticks()) >= 2, "the second tick")
        first = len(stage.ticks())
        before, start = (cpu_seconds(agent.pid), cpu_seconds(monit.pid)), time.monotonic()
        wait_for(lambda: time.sleep(0.2) or len(stage.ticks()) >= first + options.ticks, "the ticks", 3600)
        after, seconds = (cpu_seconds(agent.pid), cpu_seconds(monit.pid)), time.monotonic() - start
        used = after[1] - before[1]
        cycles = (seconds - used) / 5
        return {"processes": len([name for name in os.listdir("/proc") if name.isdigit()]),
                "ticks": options.ticks, "agent": (after[0] - before[0]) / options.ticks * 100,
                "monit": used / cycles * 100, "agent_memory": memory(agent.pid), "monit_memory": memory(monit.pid)}


def measure_memory(options):
    """The agent's memory over many ticks, its waits passing faster (see fast_clock.cpp)."""
    with Stage(options.build, period=5) as stage:
        stage.start_engine()
        agent = stage.start_agent(LD_PRELOAD=str(options.build / "libfast_clock.so"))
        figures = []
        for ticks in (options.ticks // 10, options.ticks // 2, options.ticks):
            wait_for(lambda: time.sleep(0.2) or len(stage.ticks()) >= ticks, "the ticks", 3600)
            figures.append({"ticks": ticks, **memory(agent.pid)})
        return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("what", choices=[name[8:] for name in globals() if name.startswith("measure_")])
    parser.add_argument("--build", type=pathlib.Path, default=TREE / "build/bench")
    parser.add_argument("--ticks", type=int, default=20)
    options = parser.parse_args()
    json.dump(globals()["measure_" + options.what](options), sys.stdout)


if __name__ == "__main__":
    main()
