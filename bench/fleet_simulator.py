#!/usr/bin/python3
"""Serves the metrics of many hosts that are not there, for one Prometheus to scrape (scripts/bench-fleet).

  bench/fleet_simulator.py --build build/release [--hosts 10000] [--port 9800] [--hang AT:COUNT:OVER ...]

The pages are one real page of `dunrasttctl status --prom`, of stand-ins for agent and engine, with each host's own
figures put in. A host's page changes when its timer would have written it, each 30 s. --hang lets COUNT hosts hang
from second AT on, spread over OVER seconds.

  GET  /targets      the hosts, for http_sd_configs
  GET  /metrics/N    the page of host N
  POST /alerts       what an Alertmanager tells (its webhook)
  GET  /events       when hosts began to hang, and when that was told: {"hung": {HOST: TIME}, "told": {HOST: TIME}}
"""
import argparse
import asyncio
import json
import pathlib
import random
import re
import socket
import subprocess
import tempfile
import time

WRITTEN_EACH = 30  # seconds: examples/dunrastt-metrics.timer
BACKLOG = 128
MEMORY = 64 << 30


def real_page(tool):
    """What the tool writes about an engine and an agent that are well."""
    with tempfile.TemporaryDirectory(prefix="dunra-fleet-") as name, socket.socket() as port:
        folder = pathlib.Path(name)
        port.bind(("127.0.0.1", 0))
        port.listen(BACKLOG)
        children = []
        for process, pid_file in (("stt_server", "engine.pid"), ("DunraSTT_Admin", "agent.pid")):
            (folder / process).symlink_to("/bin/sleep")
            children.append(subprocess.Popen([folder / process, "60"]))
            (folder / pid_file).write_text(str(children[-1].pid))
        now = time.localtime()
        stamp = time.strftime("[%Y/%m/%d %H:%M:%S:000]", now)
        log = folder / time.strftime("log/%Y%m%d", now)
        log.mkdir(parents=True)
        lines = ("g_shm_open_flag = 1", "System CPU [ 12 ] Config CPU [ 90 ]",
                 "System Channel [ 31 ] Config Channel [ 80 ]")
        (log / "MAIN.LOG").write_text("".join(f"{stamp}[INFO][ MAIN][x.cpp/f:1] : [{line}]\n" for line in lines))
        (log / time.strftime("hang.%Y%m%d.log", now)).write_text(
            f"[HANG]{stamp} : [[ stt_server ] health check : alived]\n")
        config = folder / "agent.conf"
        config.write_text(
            f"PROC_NAME stt_server\nWATCHDOG_NAME DunraSTT_Admin\nBASE_PATH {name}/\nDEBUG_PATH {name}/\n"
            "ADM_PID_FILE ./agent.pid\nSVC_PID_FILE ./engine.pid\nWATCH_PATH ./log/\nHANG_PATH ./log/\nHANG_SAVE 1\n"
            "WATCH_SAVE 1\nLOG_LEVEL 3\nRESTART_CHECK 1\nRESTART_CHECK_SEC 5\nCPU_OVER_VALUE 90\nCH_OVER_VALUE 80\n"
            f"HISTORY_PATH {name}/record\nASR_PORT {port.getsockname()[1]}\n")
        subprocess.run([tool, "-f", config, "status", "--prom", folder / "page"], check=True)
        for child in children:
            child.kill()
            child.wait()
        return (folder / "page").read_text().replace(str(config), "/etc/dunrastt/DunraSTT.conf")


class Fleet:
    """The pages, and what became of the hosts."""

    def __init__(self, page, hosts, port, hangs):
        sample = re.compile(r'^(dunrastt_\w+(?:{id="queue-full"[^}]*})?) (\S+)$', re.MULTILINE)
        self.template = sample.sub(r"\1 %(\1)s", page.replace("%", "%%"))
        self.constant = dict(sample.findall(page))
        self.full = next(key for key in self.constant if "queue-full" in key)
        self.targets = json.dumps([{"targets": [f"127.0.0.1:{port}"],
                                    "labels": {"instance": self.name(n), "__metrics_path__": f"/metrics/{n}"}}
                                   for n in range(hosts)]).encode()
        self.start = time.time()
        self.told = {}
        fate = random.Random(1)
        chosen = iter(fate.sample(range(hosts), sum(count for _, count, _ in hangs)))
        self.hang = {next(chosen): self.start + at + over * fate.random()
                     for at, count, over in hangs for _ in range(count)}

    @staticmethod
    def name(host):
        return f"stt-{host:05d}"

    def page(self, host):
        now = time.time()
        phase = host * 7.3 % WRITTEN_EACH
        cycle = int((now - phase) // WRITTEN_EACH)
        written = cycle * WRITTEN_EACH + phase
        hung = host in self.hang and written >= self.hang[host]
        dice = random.Random(host << 32 | cycle)
        memory = int(MEMORY * (0.3 + host % 97 / 300 + dice.random() / 1000)) & ~4095
        figures = {
            "status": 2 if hung else 0, "written_time_seconds": int(written), "figures_time_seconds": int(written) - 3,
            "agent_start_time_seconds": int(self.start) - 100 * host,
            "engine_start_time_seconds": int(self.start) - 31 * host,
            "port_waiting_connections": BACKLOG + 1 if hung else max(0, int(dice.gauss(0, 2))),
            "host_listen_overflows_total": host % 7 + (int(written - self.hang[host]) if hung else 0),
            "cpu_ratio": dice.randrange(5, 60) / 100, "channels_ratio": dice.randrange(10, 60) / 100,
            "engine_resident_memory_bytes": memory, "engine_memory_ratio": memory / MEMORY,
            "engine_threads": 400 + dice.randrange(20), "engine_open_fds": 500 + dice.randrange(200)}
        values = self.constant | {"dunrastt_" + name: value for name, value in figures.items()}
        values[self.full] = 1 if hung else 0
        return (self.template % values).encode()

    def take_alerts(self, text):
        now = time.time()
        for alert in json.loads(text)["alerts"]:
            if alert["labels"]["alertname"] == "SpeechEngineHung" and alert["status"] == "firing":
                self.told.setdefault(alert["labels"]["instance"], now)

    def answer(self, method, path, body):
        if path.startswith("/metrics/"):
            return "text/plain; version=0.0.4", self.page(int(path[9:]))
        if method == "POST":
            self.take_alerts(body)
            return "text/plain", b""
        if path == "/events":
            hung = {self.name(host): moment for host, moment in self.hang.items()}
            return "application/json", json.dumps({"hung": hung, "told": self.told}).encode()
        return "application/json", self.targets


class Connection(asyncio.Protocol):
    def __init__(self, fleet):
        self.fleet, self.data, self.transport = fleet, b"", None

    def connection_made(self, transport):
        self.transport = transport

    def data_received(self, data):
        self.data += data
        while b"\r\n\r\n" in self.data:
            head, _, rest = self.data.partition(b"\r\n\r\n")
            length = re.search(rb"(?i)\r\ncontent-length: *(\d+)", head)
            length = int(length[1]) if length else 0
            if len(rest) < length:
                return
            method, path = head.split(b" ", 2)[:2]
            kind, text = self.fleet.answer(method.decode(), path.decode(), rest[:length])
            self.data = rest[length:]
            head = f"HTTP/1.1 200 OK\r\nContent-Type: {kind}\r\nContent-Length: {len(text)}\r\n\r\n"
            self.transport.write(head.encode() + text)


async def serve(fleet, port):
    server = await asyncio.get_running_loop().create_server(lambda: Connection(fleet), "127.0.0.1", port, backlog=4096)
    await server.serve_forever()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--hosts", type=int, default=10000)
    parser.add_argument("--port", type=int, default=9800)
    parser.add_argument("--hang", action="append", default=[], type=lambda text: tuple(map(int, text.split(":"))))
    options = parser.parse_args()
    fleet = Fleet(real_page(options.build.resolve() / "dunrasttctl"), options.hosts, options.port, options.hang)
    asyncio.run(serve(fleet, options.port))


if __name__ == "__main__":
    main()
