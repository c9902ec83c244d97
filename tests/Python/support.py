"""Helpers shared by the module's tests: scratch folders and sample-host stores."""
import os
import re
import subprocess
import tempfile
import unittest

SAMPLE_HOST = os.environ.get("ZRN_SAMPLE_HOST", "")


class ScratchTest(unittest.TestCase):
    """A test with a temporary folder of its own, removed afterwards."""

    def setUp(self):
        self._folder = tempfile.TemporaryDirectory(prefix="zrn-py-")
        self.folder = self._folder.name

    def tearDown(self):
        self._folder.cleanup()

    def path(self, name="project.db"):
        return os.path.join(self.folder, name)


def run_sample_host(out):
    """Runs the sample host with its output in `out`; returns what it printed.
    Its store is out/model.db."""
    if not SAMPLE_HOST:
        raise unittest.SkipTest("ZRN_SAMPLE_HOST is not set")
    done = subprocess.run([SAMPLE_HOST, "--out", out], capture_output=True, text=True, check=True)
    return done.stdout


def printed_order(output, label):
    """The ids of one order line of the sample host ("Update order: #2 parameters, ...")."""
    line = next(l for l in output.splitlines() if l.strip().startswith(label + ":"))
    return [int(i) for i in re.findall(r"#(\d+)", line)]
