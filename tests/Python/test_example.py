"""examples/python/frame.py, run on a store the sample host wrote."""
import os
import subprocess
import sys

from support import ScratchTest, printed_order, run_sample_host

SCRIPT = os.path.join(os.environ.get("ZRN_PYTHON_EXAMPLES", ""), "frame.py")


class ExampleTest(ScratchTest):
    def test_frame_example_prints_the_hosts_orders_and_saves(self):
        host = run_sample_host(self.folder)
        store = os.path.join(self.folder, "model.db")
        run = subprocess.run([sys.executable, SCRIPT, store, "6"], capture_output=True,
                             text=True, check=True)
        self.assertIn("#2 parameters: bay_width 7.5, storey_height 4, steel_mass 45", run.stdout)
        self.assertIn("    #4 column: length 4, mass 180", run.stdout)
        for label in ("Update order", "Regeneration order"):
            self.assertEqual(printed_order(run.stdout, label), printed_order(host, label))
        self.assertIn("Span 36 m", run.stdout)
        self.assertIn("Saved: 20 rows written.", run.stdout)
        again = subprocess.run([sys.executable, SCRIPT, store, "6"], capture_output=True,
                               text=True, check=True)
        self.assertIn("Regeneration order: none", again.stdout)
