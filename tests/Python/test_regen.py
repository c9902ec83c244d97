"""Regeneration of the sample host's frame from Python, against what the host prints."""
import os
import shutil
import tempfile

import zrn

from support import ScratchTest, printed_order, run_sample_host


def setUpModule():
    global HOST_FOLDER, HOST_OUTPUT
    HOST_FOLDER = tempfile.mkdtemp(prefix="zrn-py-host-")
    HOST_OUTPUT = run_sample_host(HOST_FOLDER)


def tearDownModule():
    shutil.rmtree(HOST_FOLDER)


class FrameTest(ScratchTest):
    def setUp(self):
        super().setUp()
        shutil.copy(os.path.join(HOST_FOLDER, "model.db"), self.path())
        self.project = zrn.open(self.path())
        self.parameters = self.project.root.children[0]
        self.totals = self.project.root.children[-1]

    def tearDown(self):
        self.project.close()
        super().tearDown()

    def bays(self):
        return [e for e in self.project.root.children if e.type_name == "bay"]

    def test_a_parameter_change_regenerates_in_the_hosts_order(self):
        self.assertTrue(self.project.has_frame)
        self.assertEqual(self.parameters.props["bay_width"], 7.5)  # as the host left it
        self.parameters.props["bay_width"] = 6  # the host's change, the other way round
        result = self.project.regenerate()
        self.assertEqual(result.updated, printed_order(HOST_OUTPUT, "Update order"))
        self.assertEqual(result.regenerated, printed_order(HOST_OUTPUT, "Regeneration order"))
        self.assertEqual(result.deleted, [])
        self.assertEqual(self.totals.props["span"], 6 * len(self.bays()))
        # The parameters and every object that changed: the columns did not.
        self.assertEqual(self.project.save(), 1 + len(result.regenerated))
        with zrn.open(self.path(), eager=True) as again:
            self.assertEqual(again[self.totals.id].props["span"], 6 * len(self.bays()))

    def test_a_pass_without_changes_runs_nothing(self):
        result = self.project.regenerate()
        self.assertEqual((result.updated, result.regenerated, result.deleted), ([], [], []))

    def test_removing_a_bay_cascades_and_is_reported_by_the_next_pass(self):
        bay = self.bays()[1]
        bay_id, members = bay.id, list(bay.children)
        self.project.remove(bay_id)
        for gone in [bay] + members:
            with self.assertRaisesRegex(RuntimeError, "was deleted"):
                gone.props["mass"]
        result = self.project.regenerate()
        self.assertEqual(result.deleted, [bay_id])
        self.assertEqual(self.totals.props["span"], 7.5 * len(self.bays()))
        self.assertEqual(self.project.regenerate().deleted, [])
        with self.assertRaisesRegex(ValueError, "needs its parameters"):
            self.parameters.remove()

    def test_a_project_without_a_frame_does_not_regenerate(self):
        with zrn.create(self.path("plain.db")) as plain:
            plain.root.add_child().props["x"] = 1
            self.assertFalse(plain.has_frame)
            with self.assertRaisesRegex(RuntimeError, "nothing to regenerate"):
                plain.regenerate()
