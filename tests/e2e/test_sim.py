"""The simulated host itself: it changes nothing on the machine, and it fails
loudly when it cannot be built. (What it hides from the machine, the calls log
and the command keys are checked through the agent's scans in test_spine.)"""
import os
import subprocess
import unittest

import simlib


class SimTest(unittest.TestCase):
    def test_changes_stay_inside(self):
        self.assertTrue(os.path.exists("/etc/os-release"))
        self.assertEqual(simlib.run_in_host("bare", ["/bin/rm", "/etc/os-release"]).returncode, 0)
        self.assertTrue(os.path.exists("/etc/os-release"))

    def test_fails_loudly_without_privileges(self):
        # Without root no namespace can be made: an error, never a silent
        # pass of the command.
        p = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                            "/usr/bin/python3", simlib.SIM_RUN, "bare", "--workdir", "/",
                            "--", "/bin/true"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(p.returncode, 125, p.stderr)
        self.assertIn(b"sim/run: ", p.stderr)


if __name__ == "__main__":
    unittest.main()
