#!/usr/bin/env python3
"""tsyn export: what Prometheus and others get of it.

Usage: exporting.py BUILD_FOLDER [CASE...]
"""
import http.client
import json
import pathlib
import re
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.request

import programs
from network import CABLE_NS, MASTER_IF, ROOT, SLAVE_IF, WAIT_S, Network, ip

GRAFANA = ROOT / "tools/grafana"
PROMETHEUS_PORT = 19090


class Exporting(Network):
    def setUp(self):
        super().setUp()
        ip("link", "set", "lo", "up")

    def exporter(self, listen="127.0.0.1:0"):
        """A running exporter, and its port."""
        child = self.start("export", SLAVE_IF, "--listen", listen, cards=False)
        line = child.stderr.readline()
        told = re.fullmatch(r"tsyn: metrics at http://(\S+):(\d+)/metrics\n", line)
        self.assertTrue(told, line)
        return child, int(told[2])

    @staticmethod
    def get(port, path, host="127.0.0.1", method="GET"):
        connection = http.client.HTTPConnection(host, port, timeout=WAIT_S)
        connection.request(method, path)
        answer = connection.getresponse()
        return answer.status, answer.read().decode()

    def values(self, port):
        status, text = self.get(port, "/metrics")
        self.assertEqual(status, 200)
        return dict(line.rsplit(" ", 1) for line in text.splitlines() if line[0] != "#")


class Export(Exporting):
    def test_answers_paths_methods_and_both_families(self):
        _, port = self.exporter()
        self.assertEqual(self.get(port, "/healthz"), (200, "ok\n"))
        self.assertEqual(self.get(port, "/")[0], 404)
        self.assertEqual(self.get(port, "/metrics", method="POST")[0], 405)
        self.assertEqual(self.values(port)[f'tsyn_up{{interface="{SLAVE_IF}"}}'], "0")
        _, port = self.exporter("[::1]:0")
        self.assertEqual(self.get(port, "/healthz", host="::1")[0], 200)

    def test_clients_that_dawdle_or_babble_hold_up_nobody(self):
        child, port = self.exporter()
        dawdlers = [socket.create_connection(("127.0.0.1", port)) for _ in range(12)]
        for each in dawdlers:
            each.send(b"GET /metr")
        self.assertEqual(self.get(port, "/healthz")[0], 200)
        with socket.create_connection(("127.0.0.1", port), timeout=WAIT_S) as babbler:
            babbler.send(b"\xff" * 20000)
            self.assertIn(b" 431 ", babbler.recv(1000))
        with socket.create_connection(("127.0.0.1", port)) as leaver:
            leaver.send(b"GET /metrics HTTP/1.1\r\n\r\n")
        dawdlers[0].settimeout(WAIT_S)
        self.assertEqual(dawdlers[0].recv(10), b"", "is dropped")
        for each in dawdlers:
            each.close()
        self.assertEqual(self.get(port, "/healthz")[0], 200)
        child.terminate()
        self.assertEqual(child.wait(WAIT_S), 0)

    def test_wrong_addresses(self):
        _, port = self.exporter()
        for listen, part in ((f"127.0.0.1:{port}", "another program listens there"),
                             ("192.0.2.1:9319", "no address of this machine"),
                             ("localhost:9319", "ADDR:PORT"), ("::1:9319", "ADDR:PORT"),
                             ("127.0.0.1:70000", "ADDR:PORT"), ("127.0.0.1", "ADDR:PORT"),
                             (":9319", "ADDR:PORT")):
            with self.subTest(listen=listen):
                self.assert_one_error(self.start("export", SLAVE_IF, "--listen", listen), 1,
                                      f"--listen {listen}: ", part)
        self.assert_one_error(self.start("export", SLAVE_IF), 2, "--listen")


class Prometheus(Exporting):
    def pair(self):
        master = self.run_json(MASTER_IF, "master", "--profile", "standard")
        self.wait_for_state(master, "sending")
        slave = self.run_json(SLAVE_IF, "slave", "--profile", "standard",
                              "--propagation-delay", str(CABLE_NS))
        self.wait_for_state(slave, "synchronised")
        return slave

    @staticmethod
    def query(expression):
        url = f"http://127.0.0.1:{PROMETHEUS_PORT}/api/v1/query?query={expression}"
        try:
            with urllib.request.urlopen(url, timeout=WAIT_S) as answer:
                found = json.load(answer)["data"]["result"]
        except OSError:
            return None
        return found[0]["value"][1] if found else None

    def test_scrapes_a_slave_and_notices_its_end(self):
        slave = self.pair()
        _, port = self.exporter()
        checked = subprocess.run(["promtool", "check", "metrics"], check=False, text=True,
                                 input=self.get(port, "/metrics")[1], capture_output=True)
        self.assertEqual((checked.returncode, checked.stdout, checked.stderr), (0, "", ""))
        folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, folder)
        (folder / "alerts.yml").write_text((GRAFANA / "alerts.yml").read_text())
        (folder / "prometheus.yml").write_text(
            "global: {scrape_interval: 1s}\nrule_files: [alerts.yml]\n"
            "scrape_configs: [{job_name: tsyn, static_configs: "
            f"[{{targets: ['127.0.0.1:{port}']}}]}}]\n")
        self.start(f"--config.file={folder}/prometheus.yml", f"--storage.tsdb.path={folder}/data",
                   f"--web.listen-address=127.0.0.1:{PROMETHEUS_PORT}", "--log.level=error",
                   program="/usr/bin/prometheus", cards=False)
        self.wait_for_value("tsyn_synchronised", "1")
        bound = float(self.values(port)[f'tsyn_error_bound_seconds{{interface="{SLAVE_IF}"}}'])
        self.assertTrue(0 < bound < 1e-3, bound)
        slave.kill()
        slave.wait(WAIT_S)
        self.wait_for_value("tsyn_up", "0")

    def wait_for_value(self, expression, value):
        give_up = time.monotonic() + 60
        while self.query(expression) != value:
            self.assertLess(time.monotonic(), give_up, expression)
            time.sleep(0.2)

    def test_alerts_and_dashboard_ask_for_metrics_that_there_are(self):
        subprocess.run(["promtool", "check", "rules", GRAFANA / "alerts.yml"], check=True,
                       stdout=subprocess.DEVNULL)
        self.pair()
        _, port = self.exporter()
        there = {series.partition("{")[0] for series in self.values(port)}
        dashboard = json.loads((GRAFANA / "dashboard.json").read_text())
        asked = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        asked.append((GRAFANA / "alerts.yml").read_text())
        names = {name for text in asked for name in re.findall(r"\btsyn_[a-z_]+", text)}
        self.assertGreater(len(names), 8)
        self.assertEqual(names - there, set())


if __name__ == "__main__":
    programs.main(__file__)
