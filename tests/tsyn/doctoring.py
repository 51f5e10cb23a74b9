"""What the tests of tsyn doctor share."""
import json

from network import MASTER_IF, SLAVE_IF, WAIT_S
from simulated import Simulated

LIST = "101112131415161718191a1b1c1d1e1f"
SECURED = ("--autosar", "--time-tlv", "secured", "--status-tlv", "secured", "--user-data-tlv",
           "secured", "--crc-time-flags", "0x3F", "--data-id-list", LIST)
DEPLOYED = ("--profile", "deployed")
STANDARD = ("--profile", "standard")
FIXED = ("--propagation-delay", "500")
PDELAY_REQ, PDELAY_RESP, FOLLOW_UP = "2", "3", "8"
TX_OFF, TX_ON, RX_NONE, RX_PTP_V2_EVENT = "0", "1", "0", "12"


class Doctoring(Simulated):
    """A cable, its daemons, and what doctor says of them."""

    def daemon(self, name, role, *options):
        if "--profile" not in options:
            options += STANDARD
        return self.start("run", name, "--role", role, "--log", f"/dev/shm/{role}.log", *options)

    def pair(self, master=(), slave=(), settle=6.0):
        """A master, and a slave that has followed it for a while."""
        self.master = self.daemon(MASTER_IF, "master", *master)
        self.slave = self.daemon(SLAVE_IF, "slave", *slave)
        self.timekeeper.sleep(settle)

    def run_doctor(self, name, *options):
        child = self.start("doctor", name, *options)
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual(errors, "")
        return child.returncode, output

    def report(self, *options, name=SLAVE_IF):
        status, output = self.run_doctor(name, "--json", *options)
        report = json.loads(output)
        self.assertEqual(status, 0 if report["first_failed"] is None else 1, output)
        return report

    def assert_first(self, gate, *parts, options=(), name=SLAVE_IF, state="not synchronised"):
        """Doctor names this gate first, with these parts in what it found or advises, and tells
        whether there is time all the same."""
        report = self.report(*options, name=name)
        self.assertEqual(report["first_failed"], gate, json.dumps(report["gates"], indent=1))
        failed = next(each for each in report["gates"] if each["gate"] == gate)
        text = f"{failed['found']} -> {failed['next']}"
        for part in parts:
            self.assertIn(part, text)
        self.assertEqual(report["state"], state)
        link = {"synchronised": ", yet {} failed: ", "sending": ", yet {} failed: ",
                "state not known": "; {} failed: "}.get(state, ", since: {}: ")
        self.assertEqual(report["summary"], state + link.format(gate) + failed["found"])

    def assert_healthy(self, *options, name=SLAVE_IF):
        report = self.report(*options, name=name)
        self.assertIsNone(report["first_failed"], json.dumps(report["gates"], indent=1))
        return {each["gate"]: each for each in report["gates"]}
