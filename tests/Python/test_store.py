"""Projects in stores: trees, lookups, walks, property edits saved and reloaded."""
import os
import shutil
import sqlite3
import subprocess
import unittest
import uuid

import zrn

from support import ScratchTest


def build(project, shape):
    """Adds children as `shape` says: a list of (props, children shape)."""
    def add(parent, shape):
        for props, children in shape:
            child = parent.add_child()
            for name, value in props.items():
                child.props[name] = value
            add(child, children)
    add(project.root, shape)


SHAPE = [({"n": 1}, [({"n": 2}, []), ({"n": 3}, [({"n": 4}, [])])]), ({"n": 5}, [])]


class TreeTest(ScratchTest):
    def test_tree_lookup_and_walk(self):
        with zrn.create(self.path()) as project:
            build(project, SHAPE)
            root = project.root
            self.assertEqual((root.id, root.type, root.type_name, root.parent), (1, 1, "project", None))
            self.assertEqual([e.props.get("n") for e in project.walk()], [None, 1, 2, 3, 4, 5])
            self.assertEqual([e.id for e in project.walk()], [1, 2, 3, 4, 5, 6])
            first = root.children[0]
            self.assertEqual((len(first.children), first.children[-1].id), (2, 4))
            self.assertEqual([c.id for c in first.children], [3, 4])
            self.assertEqual(first.children[1].children[0].parent.parent, first)
            self.assertEqual((first.type, first.type_name), (2, "properties"))
            with self.assertRaises(IndexError):
                first.children[2]
            self.assertEqual(project[5].props["n"], 4)
            self.assertIsNone(project.find(99))
            self.assertNotIn(99, project)
            with self.assertRaises(KeyError):
                project[99]
            self.assertEqual(len(project), 6)

    def test_a_million_deep_chain_loads_and_walks(self):
        # Adding one by one finds the project from the new child each time,
        # so the chain is written into the store's rows directly.
        depth = 1_000_000
        with zrn.create(self.path()) as project:
            project.root.add_child().props["top"] = True
            project.root.children[0].add_child()
            project.save()
        with sqlite3.connect(self.path()) as db:
            data = db.execute("SELECT Data FROM EntityTable WHERE ID = 3").fetchone()[0]
            db.executemany("INSERT INTO EntityTable (ID, PID, Seq, Type, Flags, Data) "
                           "VALUES (?, ?, 0, 2, 0, ?)",
                           ((i, i - 1, data) for i in range(4, depth + 2)))
        with zrn.open(self.path()) as project:
            count = 0
            for entity in project.walk():
                count += 1
            self.assertEqual((count, entity.id), (depth + 1, depth + 1))
            self.assertEqual(project[depth + 1].parent.id, depth)
            self.assertTrue(project[2].props["top"])
            entity.props["bottom"] = 1
            self.assertEqual(project.save(), 1)

    def test_remove_deletes_the_subtree(self):
        with zrn.create(self.path()) as project:
            build(project, SHAPE)
            kept = project[5]
            project[2].remove()
            self.assertEqual([e.id for e in project.walk()], [1, 6])
            with self.assertRaisesRegex(RuntimeError, "entity 5 was deleted"):
                kept.props["n"]
            with self.assertRaisesRegex(ValueError, "project itself"):
                project.remove(1)
            project.save()
        with zrn.open(self.path()) as project:
            self.assertEqual([e.id for e in project.walk()], [1, 6])


class PropsTest(ScratchTest):
    def test_edits_are_saved_and_only_what_changed_is_written(self):
        with zrn.create(self.path()) as project:
            build(project, SHAPE)
            self.assertEqual(project.save(), 6)  # the root row, five entities
            project[3].props["n"] = 20
            del project[4].props["n"]
            project[4].props["label"] = "x"
            self.assertEqual(project.save(), 2)
            self.assertEqual(project.save(), 0)
        with zrn.open(self.path()) as project:
            props = project[4].props
            self.assertEqual((project[3].props["n"], dict(props.items())), (20, {"label": "x"}))
            self.assertIn("label", props)
            self.assertNotIn("n", props)
            self.assertNotIn(3, props)
            self.assertEqual((props.get("n"), props.get("n", 7), len(props)), (None, 7, 1))
            self.assertEqual((list(props), props.values()), (["label"], ["x"]))
            with self.assertRaises(KeyError):
                del props["n"]
            props["n"] = None  # a null value is a value
            self.assertIn("n", props)
            self.assertIsNone(props["n"])

    def test_lazy_entities_load_on_access_and_can_be_changed(self):
        with zrn.create(self.path()) as project:
            build(project, SHAPE)
            project.save()
        with zrn.open(self.path()) as project:
            project[6].props["n"] += 1
            project.save()
        with zrn.open(self.path(), eager=True) as project:
            self.assertEqual([e.props.get("n") for e in project.walk()], [None, 1, 2, 3, 4, 6])

    def test_blob_is_the_stored_archive(self):
        with zrn.create(self.path()) as project:
            entity = project.root.add_child()
            entity.props["width"] = 2.5
            with self.assertRaisesRegex(zrn.StoreError, "not saved"):
                entity.blob()
            project.save()
            [item] = zrn.inspect(entity.blob())
            self.assertEqual((item.version, len(item.blocks)), (1, 1))
            self.assertTrue(project.root.blob())


@unittest.skipUnless(os.environ.get("ZRN_TEST_PG_URL"), "no PostgreSQL server (ZRN_TEST_PG_URL)")
class ServerStoreTest(unittest.TestCase):
    """A project on the throwaway server, in a schema of its own."""

    def setUp(self):
        psql = shutil.which("psql") or next(
            (p for p in sorted(__import__("glob").glob("/usr/lib/postgresql/*/bin/psql"))), None)
        if not psql:
            self.skipTest("no psql to make a schema with")
        self.admin = [psql, os.environ["ZRN_TEST_PG_URL"], "-q", "-c"]
        # psql is not built with the sanitizers whose runtimes the tests may preload.
        self.admin_env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
        self.schema = "zrn_py_" + uuid.uuid4().hex[:8]
        subprocess.run(self.admin + ["CREATE SCHEMA " + self.schema], env=self.admin_env,
                       check=True, timeout=60)
        url = os.environ["ZRN_TEST_PG_URL"]
        self.url = url + ("&" if "?" in url else "?") + "options=-csearch_path%3D" + self.schema

    def tearDown(self):
        subprocess.run(self.admin + ["DROP SCHEMA " + self.schema + " CASCADE"],
                       env=self.admin_env, check=True, timeout=60)

    def test_properties_round_trip_on_the_server(self):
        with zrn.create(self.url) as project:
            build(project, SHAPE)
            project[2].props["colour"] = zrn.Color(1, 2, 3)
            project.save()
            self.assertNotIn("password", repr(project))
        with zrn.open(self.url) as project:
            self.assertEqual([e.props.get("n") for e in project.walk()], [None, 1, 2, 3, 4, 5])
            self.assertEqual(project[2].props["colour"], zrn.Color(1, 2, 3))
