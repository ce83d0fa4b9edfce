#!/usr/bin/python3
"""An engine that dies some three seconds after each start, for --minutes, under two agents side by side: one starts it
by its script, the other through `dunrasttctl start`. Prints what came of it as JSON, a line each; every minute they
stand in --folder too.
"""
import argparse
import ctypes
import json
import os
import pathlib
import resource
import subprocess
import sys
import time

import agent_life

SUBREAPER = 36
START_SCRIPT = """#!/bin/sh
home=${0%/*}
echo x >> "$home/starts"
("$home/ENGINE" 3 & echo $! > "$home/engine.pid"; wait) > /dev/null 2>&1 &
"""


def processor_seconds(pid):
    """What a process has used itself, and what those of its children that it waited for."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    own, waited = (sum(map(int, fields[at:at + 2])) / os.sysconf("SC_CLK_TCK") for at in (11, 13))
    return own, waited


def files(folder):
    return [path for path in folder.rglob("*") if path.is_file()]


def figures(side, stage, receivers, agent, begin):
    own, waited = processor_seconds(agent.pid)
    orphans = resource.getrusage(resource.RUSAGE_CHILDREN)
    record = files(stage.home / "record")
    lines = [json.loads(line) for path in record if path.parent.name == "starts" for line in path.read_text().splitlines()]
    return {"side": side, "minutes": round((time.monotonic() - begin) / 60, 1),
            "starts": len((stage.home / "starts").read_text().split()) if (stage.home / "starts").exists() else 0,
            "frames": receivers.frames.read_text().count("ALARM+DunraSTT") if receivers.frames.exists() else 0,
            "mails": len(list(receivers.folders["mail"].glob("*.eml"))),
            "posts": len(list(receivers.folders["post"].glob("*.body"))),
            "held": sum(line["held"] is not None for line in lines), "recorded": len(lines),
            "evidence_files": sum(path.parent.name == "evidence" for path in record),
            "record_bytes": sum(path.stat().st_size for path in record),
            "record_bytes_on_disk": sum(path.stat().st_blocks * 512 for path in record),
            "log_bytes": len(stage.log()), "agent_cpu": own, "waited_cpu": waited,
            "orphans_cpu": round(orphans.ru_utime + orphans.ru_stime, 2)}


def run_side(side, options):
    # Each side has process names of its own: an agent refuses to start beside another of its name.
    agent_life.ENGINE, agent_life.AGENT = f"flap_e_{side}", f"flap_a_{side}"
    agent_life.START_SCRIPT = START_SCRIPT
    with agent_life.Stage(options.build, period=10) as stage:
        receivers = agent_life.Receivers(stage)
        stage.configure(receivers.keys)
        # The tool knows an agent by its program's name.
        (stage.home / agent_life.AGENT).rename(stage.home / "DunraSTT_Admin")
        (stage.home / agent_life.AGENT).symlink_to("DunraSTT_Admin")
        if side == "tool":
            stage.configure({"SHELL_FILE": options.build.resolve() / "dunrasttctl", "HISTORY_PATH": f"{stage.home}/record/",
                             "SHELL_METHOD": f"start -- {stage.home}/start.sh start"})
        # What the tool and the script leave behind is reaped here, and so counted.
        ctypes.CDLL(None).prctl(SUBREAPER, 1, 0, 0, 0)
        agent, begin = stage.start_agent(), time.monotonic()
        while True:
            time.sleep(1)
            while os.waitid(os.P_ALL, 0, os.WEXITED | os.WNOHANG):
                pass
            over = time.monotonic() - begin >= options.minutes * 60
            if over or int(time.monotonic() - begin) % 60 == 0:
                found = json.dumps(figures(side, stage, receivers, agent, begin))
                (options.folder / (side + ".json")).write_text(found + "\n")
            if over:
                return print(found, flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=agent_life.TREE / "build/bench")
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--folder", type=pathlib.Path, default=pathlib.Path("/tmp"))
    parser.add_argument("--side", choices=("script", "tool"))
    options = parser.parse_args()
    if options.side:
        return run_side(options.side, options)
    sides = [subprocess.Popen([sys.executable, *sys.argv, "--side", side]) for side in ("script", "tool")]
    return sys.exit(max(side.wait() for side in sides))


if __name__ == "__main__":
    main()
