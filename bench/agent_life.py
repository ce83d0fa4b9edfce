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
import resource
import shutil
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

PAUSES = 0.020  # between a request and its handing over: 10 ms twice, before the mail is sent
SPACING = 1.0   # between the two snapshots of a tick
LOOK = 1.0      # until the management thread sees a request, at most

# The first thing that it does is to note when it runs.
START_SCRIPT = """#!/bin/bash
home=${0%/*}
echo $EPOCHREALTIME > "$home/started.part"
mv "$home/started.part" "$home/started"
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
    """Private and proportional kilobytes, those of the linked libraries, and the number of threads. Private is what
    the process has written to: whether a page of a program or library is shared depends on who else runs."""
    figures = {"private": 0, "pss": 0, "libraries": 0, "libraries_private": 0}
    library = False
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        key, _, value = line.partition(":")
        if re.match(r"[0-9a-f]+-[0-9a-f]+ ", line):
            library = any(name in line for name in LIBRARIES)
        elif key in ("Private_Dirty", "Pss"):
            kilobytes = int(value.split()[0])
            figures["pss" if key == "Pss" else "private"] += kilobytes
            if library:
                figures["libraries" if key == "Pss" else "libraries_private"] += kilobytes
    figures["threads"] = len(os.listdir(f"/proc/{pid}/task"))
    return figures


class Stage:
    """A folder with an engine stand-in, its start script, the agent's and monit's configuration."""

    def __init__(self, build, period=5):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="agent-life-"))
        self.processes = []
        (self.home / ENGINE).symlink_to(shutil.which("sleep"))
        # Copies: pages of a program that several measurements run at once would count as nobody's own.
        shutil.copy(build / "DunraSTT_Admin", self.home / AGENT)
        shutil.copy(shutil.which("monit"), self.home / "monit")
        script = self.home / "start.sh"
        script.write_text(START_SCRIPT.replace("ENGINE", ENGINE))
        script.chmod(0o755)
        for name in ("to.txt", "cc.txt", "bcc.txt"):
            (self.home / name).write_text("Operator operator@example.com\n" if name == "to.txt" else "")
        self.keys = {"PROC_NAME": ENGINE, "WATCHDOG_NAME": AGENT, "BASE_PATH": f"{self.home}/", "DEBUG_PATH": f"{self.home}/",
                "ASR_PORT": 1, "SHELL_FILE": "./start.sh", "SHELL_METHOD": "start", "SVC_PID_FILE": "./engine.pid", "CFG_FILE": "./agent.conf",
                "ADM_PID_FILE": "./agent.pid", "TOUCH_ADMIN_FILE": "./agent.lock", "RECEIVER_FILE": "./to.txt",
                "REFERENCE_FILE": "./cc.txt", "BLIND_FILE": "./bcc.txt", "RESTART_CHECK": 1,
                "RESTART_CHECK_SEC": period, "CPU_OVER_VALUE": 1000, "MEM_OVER_VALUE": 1000, "CH_OVER_VALUE": 1000,
                "WATCH_SAVE": 1, "WATCH_PATH": "./log/", "HANG_PATH": "./log/", "LOG_LEVEL": 3}
        self.configure({})

    def configure(self, keys):
        self.keys.update(keys)
        self.write("agent.conf", "".join(f"{key}\t{value}\n" for key, value in self.keys.items()))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.kill()
        for process in self.processes:
            process.wait()
        self.kill_engine()
        shutil.rmtree(self.home, ignore_errors=True)

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
  if cpu usage > 100% then alert
check process engine matching "{ENGINE}"
  start program = "{self.home}/start.sh start"
  if total memory > 100000 MB then alert
  if total cpu > 100% then alert
"""
        return self.run(self.home / "monit", "-I", "-c", self.write("monitrc", rules, 0o600))


def measure_cpu(options):
    """CPU of 100 ticks, and memory, of both programs side by side."""
    with Stage(options.build, period=5) as stage:
        stage.start_engine()
        stage.run(options.build / "crowd", options.behind, "sleep", "infinity")
        wait_for(lambda: len(pathlib.Path(f"/proc/{stage.processes[-1].pid}/task/{stage.processes[-1].pid}/children")
                             .read_text().split()) > options.behind, "the processes behind the engine")
        agent, monit = stage.start_agent(), stage.start_monit(5)
        wait_for(lambda: len(stage.ticks()) >= 2, "the second tick")
        first = len(stage.ticks())
        before, start = (cpu_seconds(agent.pid), cpu_seconds(monit.pid)), time.monotonic()
        wait_for(lambda: time.sleep(0.2) or len(stage.ticks()) >= first + options.ticks, "the ticks", 3600)
        after, seconds = (cpu_seconds(agent.pid), cpu_seconds(monit.pid)), time.monotonic() - start
        time.sleep(SPACING + 1.5)  # the tick that has just begun is over then
        used = after[1] - before[1]
        cycles = (seconds - used) / 5
        return {"processes": len([name for name in os.listdir("/proc") if name.isdigit()]),
                "ticks": options.ticks, "agent": (after[0] - before[0]) / options.ticks * 100,
                "monit": used / cycles * 100, "agent_memory": memory(agent.pid), "monit_memory": memory(monit.pid)}


def measure_memory(options):
    """The agent's memory over many ticks, its waits passing faster (see fast_clock.cpp)."""
    with Stage(options.build, period=1) as stage:
        stage.start_engine()
        agent = stage.start_agent(LD_PRELOAD=str(options.build / "libfast_clock.so"))
        figures = []
        for ticks in (options.ticks // 10, options.ticks // 2, options.ticks):
            wait_for(lambda: time.sleep(0.2) or len(stage.ticks()) >= ticks, "the ticks", 3600)
            # In the middle of a tick the agent holds a process table: what it holds between two ticks counts.
            samples = [time.sleep(0.007) or memory(agent.pid) for _ in range(40)]
            figures.append({"ticks": ticks, "peak": max(sample["private"] for sample in samples),
                            **min(samples, key=lambda sample: sample["private"])})
        return figures


def one_run(options, keys):
    """CPU and memory of so many ticks of an agent that has these keys too, and every check and channel."""
    with Stage(options.build, period=1) as stage:
        receivers = Receivers(stage)
        stage.configure({**receivers.keys, "ASR_PORT": receivers.port("engine_peer.py"), "HANG_SAVE": 1, "HANG_TIME": 60,
                         "RESULT_CHECK": 1, "RESULT_TIME": "00:00"})
        stage.configure({key: value.format(mail=stage.keys["SMTP_SERVER_PORT"]) for key, value in keys.items()})
        stage.start_engine()
        agent = stage.start_agent(LD_PRELOAD=str(options.build / "libfast_clock.so"))
        wait_for(lambda: len(stage.ticks()) >= 5, "the ticks")
        before, first = cpu_seconds(agent.pid), len(stage.ticks())
        wait_for(lambda: time.sleep(0.2) or len(stage.ticks()) >= first + options.ticks, "the ticks", 3600)
        used = (cpu_seconds(agent.pid) - before) / (len(stage.ticks()) - first)
        samples = [time.sleep(0.007) or memory(agent.pid)["private"] for _ in range(40)]
        return {"cpu": used * 100, "private": min(samples), "frames": receivers.frames.read_text().count("\n")}


def measure_keys(options):
    """The same agent without and with all keys that answer its own faults, in turns (see fast_clock.cpp)."""
    keys = dict(word.split("=") for word in (
        "CHANNEL_RETRY=1 HANG_ALARM=3 HANG_QUEUE=16 REPORT_QUEUE=32 TEXT_REPAIR=1 MAIL_SKIP_BAD=1 MAIL_TLS=1 MAIL_TIMEOUT=60"
        " MAIL_URL=smtp://127.0.0.1:{mail} WEBHOOK_TIMEOUT=30 WEBHOOK_STRICT=1 WEBHOOK_CARD=1 MEM_OVER_PERCENT=90"
        " ZOMBIE_DEAD=1 RESULT_CATCH_UP=1").split())
    runs = [(one_run(options, {}), one_run(options, keys)) for _ in range(options.rounds)]
    return {side: {figure: statistics.median(run[at][figure] for run in runs) for figure in runs[0][0]}
            for at, side in enumerate(("off", "on"))}


def measure_walk(options):
    """Microseconds of CPU for each process of the table: the bare walk, the agent's, and those of others."""
    report = subprocess.run([options.build / "sysinfo_bench", "--benchmark_filter=SnapshotOverWalk/0/",
                             "--benchmark_format=json"], check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    own = json.loads(report.stdout)["benchmarks"][0]
    count = own["processes"]
    figures = {"processes": count, "floor": own["floor_us"], "agent": own["ours_us"]}
    fields = "pid,ppid,uid,gid,user,state,vsz,nlwp,rss,cputimes,ni,comm,args"
    walk = ("import psutil, time; w = ['pid', 'ppid', 'uids', 'gids', 'username', 'status', 'memory_info', 'num_threads',"
            " 'cpu_times', 'nice', 'name', 'cmdline']; a = time.process_time();"
            " n = sum(1 for _ in psutil.process_iter(w)); print((time.process_time() - a) / n * 1e6)")
    peers = {"ps": [], "psutil": []}
    for _ in range(options.rounds):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(["ps", "-eo", fields], check=True, stdout=subprocess.DEVNULL)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        peers["ps"].append(used / count * 1e6)
        output = subprocess.run(["/usr/bin/python3", "-c", walk], check=True, stdout=subprocess.PIPE).stdout
        peers["psutil"].append(float(output))
    return {**figures, **{name: statistics.median(values) for name, values in peers.items()}}


class Receivers:
    """The stand-ins that take frames, mails and posts."""

    def __init__(self, stage):
        self.stage = stage
        self.frames = stage.home / "frames.jsonl"
        folders = [stage.home / "mails", stage.home / "posts"]
        for folder in folders:
            folder.mkdir()
        self.folders = dict(zip(("mail", "post"), folders))
        frames = self.port("mgmt_server.py", "--record", self.frames)
        mails = self.port("mail_sink.py", "--folder", folders[0])
        posts = self.port("webhook_sink.py", "--folder", folders[1])
        self.keys = {"ALARM_SERVER1": f"127.0.0.1:{frames}", "SEND_EMAIL_CHECK": 1, "SMTP_SERVER_URL": "127.0.0.1",
                     "SMTP_SERVER_PORT": mails, "SENDER_EMAIL": "agent@example.com", "SMTP_AUTH": 1, "SENDER_NAME": "Agent",
                     "SEND_WEBHOOK_CHECK": 1, "WEBHOOK_SERVER_URL": f"http://127.0.0.1:{posts}/hook"}

    def port(self, peer, *words):
        out = self.stage.home / (peer + ".out")
        self.stage.run("/usr/bin/python3", PEERS / peer, *words, out=out)
        return int(wait_for(lambda: re.search(r"^port (\d+)$", out.read_text(), re.MULTILINE), peer)[1])

    def arrived(self, kind, after):
        """When the first alarm after that moment arrived; None while there is none."""
        if kind == "frame":
            events = map(json.loads, self.frames.read_text().splitlines())
            times = [event["time"] for event in events
                     if event["event"] == "frame" and event.get("body", "").startswith("ALARM+")]
        else:
            times = [path.stat().st_mtime for path in self.folders[kind].glob("*.body" if kind == "post" else "*.eml")]
        return min((moment for moment in times if moment > after), default=None)


def snapshot_seconds(ticks, period):
    """One snapshot, from the time between the undisturbed ticks that the agent itself noted."""
    gaps = [later - earlier for earlier, later in zip(ticks, ticks[1:])]
    return max(statistics.median(gaps) - period - SPACING - PAUSES, 0.0)


def one_kill(stage, receivers, phase, period):
    """Kills the engine at that part of the period: seconds of each event beyond what the waits explain."""
    known = len(stage.ticks())
    begin = wait_for(lambda: stage.ticks()[known:], "a tick")[0]
    time.sleep(max(begin + phase * (period + SPACING) - time.time(), 0))
    killed = stage.kill_engine()
    script = wait_for(stage.started, "the start script")
    arrivals = {kind: wait_for(lambda k=kind: receivers.arrived(k, killed), "the " + kind) for kind in ("frame", "mail", "post")}
    # The first look that could miss the engine: the second snapshot of a tick, or the kill when it came during one.
    looks = (tick + SPACING for tick in stage.ticks())
    look = next((moment for moment in looks if killed <= moment <= script), killed)
    (stage.home / "started").unlink()
    beyond = {"script": script - look - PAUSES, "frame": arrivals["frame"] - look - LOOK}
    return {**beyond, **{kind: arrivals[kind] - look - PAUSES for kind in ("mail", "post")}}


def measure_kills(options):
    """Kills spread evenly over the period: what is beyond the waits, in seconds, and one snapshot."""
    period = 1
    with Stage(options.build, period) as stage:
        receivers = Receivers(stage)
        stage.configure(receivers.keys)
        stage.start_engine()
        stage.start_agent()
        wait_for(lambda: len(stage.ticks()) >= 6, "the ticks")
        snapshot = snapshot_seconds(stage.ticks()[1:], period)
        one_kill(stage, receivers, 0, period)  # the receivers, too, are slower the first time
        kills = [one_kill(stage, receivers, number / options.kills, period)
                 for number in range(options.kills)]
    return {"snapshot": snapshot, "kills": kills}


def measure_monit_kills(options):
    """The same for monit with a cycle of one second: seconds from each kill to the start script."""
    delays = []
    with Stage(options.build) as stage:
        stage.start_engine()
        stage.start_monit(1)
        time.sleep(3)
        for number in range(options.kills):
            time.sleep(1.5 + number / options.kills)
            killed = stage.kill_engine()
            delays.append(wait_for(stage.started, "the start script") - killed)
            (stage.home / "started").unlink()
    return delays


def measure_startup(options):
    """From exec to the agent's first tick, and to monit's first repair."""
    agent, monit = [], []
    for _ in range(options.rounds):
        with Stage(options.build) as stage:
            stage.start_engine()
            start = time.time()
            stage.start_agent()
            agent.append(wait_for(stage.ticks, "the first tick")[0] - start)
        with Stage(options.build) as stage:
            start = time.time()
            stage.start_monit(5)
            monit.append(wait_for(stage.started, "the repair") - start)
    return {"agent": agent, "monit": monit}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("what", choices=[name[8:] for name in globals() if name.startswith("measure_")])
    parser.add_argument("--build", type=pathlib.Path, default=TREE / "build/bench")
    parser.add_argument("--ticks", type=int, default=20)
    parser.add_argument("--behind", type=int, default=0, help="processes that start after the engine")
    parser.add_argument("--kills", type=int, default=12)
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    json.dump(globals()["measure_" + options.what](options), sys.stdout)


if __name__ == "__main__":
    main()
