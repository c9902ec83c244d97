"""Values between Python and the library: each type, in memory and through a store."""
import zrn

from support import ScratchTest

VALUES = {
    "flag": True,
    "count": 42,
    "big": 2**40,
    "huge": 2**64 - 1,
    "negative": -(2**63),
    "width": 2.5,
    "name": "Grüße, 世界",
    "empty": "",
    "colour": zrn.Color(10, 20, 30, 40),
    "target": zrn.ObjectId(2**64 - 1),
    "nothing": None,
}
# The archive keeps a geometric value's type but not its coordinates.
GEOMETRY = {
    "vec2": ((1.0, 2.0), (0.0, 0.0)),
    "vec3": ((1.0, 2.0, 3.5), (0.0, 0.0, 0.0)),
    "box": (((0, 0, 0), (1, 2, 3)), ((0.0,) * 3,) * 2),
    "frame": (((1, 2, 3), (1, 0, 0), (0, 1, 0), (0, 0, 1)), ((0.0,) * 3,) * 4),
}


def as_floats(value):
    return tuple(as_floats(v) for v in value) if isinstance(value, tuple) else float(value)


class ValueTest(ScratchTest):
    def test_each_type_round_trips_in_memory_and_through_the_store(self):
        with zrn.create(self.path()) as project:
            props = project.root.add_child().props
            for name, value in VALUES.items():
                props[name] = value
            for name, (value, _) in GEOMETRY.items():
                props[name] = value
            for name, value in VALUES.items():
                self.assertEqual(props[name], value, name)
                self.assertIs(type(props[name]), type(value), name)
            for name, (value, _) in GEOMETRY.items():
                self.assertEqual(props[name], as_floats(value), name)
            entity_id = props_id = project.root.children[0].id
            project.save()
        for eager in (False, True):
            with zrn.open(self.path(), eager=eager) as project:
                props = project[props_id].props
                self.assertEqual(dict(props.items()),
                                 {**VALUES, **{n: s for n, (_, s) in GEOMETRY.items()}})
        self.assertEqual(entity_id, 2)

    def test_a_number_keeps_the_type_the_property_has(self):
        with zrn.create(self.path()) as project:
            props = project.root.add_child().props
            props["width"] = 2.5
            props["width"] = 3  # stays a floating value
            self.assertIs(type(props["width"]), float)
            props["id"] = 2**63  # unsigned 64-bit
            with self.assertRaisesRegex(ValueError, "does not fit"):
                props["id"] = -1
            props["flag"] = False
            props["flag"] = 7  # a bool is no number to keep
            self.assertEqual(props["flag"], 7)

    def test_refused_values_raise_and_store_nothing(self):
        with zrn.create(self.path()) as project:
            props = project.root.add_child().props
            props["x"] = 1
            cases = [
                (2**64, ValueError, "out of range"),
                (-(2**63) - 1, ValueError, "out of range"),
                ({"a": 1}, TypeError, "dict"),
                (b"raw", TypeError, "bytes"),
                ((1, 2, 3, 4), ValueError, "4 numbers"),
                ((), ValueError, "0 numbers"),
                ((1, "2"), TypeError, "numbers"),
                (((1, 2, 3),), ValueError, "box"),
                (((1, 2), (3, 4)), ValueError, "box"),
            ]
            for value, error, text in cases:
                with self.subTest(value=value), self.assertRaisesRegex(error, text):
                    props["x"] = value
            self.assertEqual(props["x"], 1)
            self.assertEqual(list(props.keys()), ["x"])


class ValueClassTest(ScratchTest):
    def test_color(self):
        self.assertEqual(zrn.Color(1, 2, 3), zrn.Color(1, 2, 3, 255))
        self.assertNotEqual(zrn.Color(1, 2, 3), zrn.Color(1, 2, 3, 0))
        self.assertEqual(repr(zrn.Color(1, 2, 3, 4)), "zrn.Color(1, 2, 3, 4)")
        self.assertEqual((zrn.Color(0, 0, 0).a, zrn.Color(9, 8, 7).g), (255, 8))
        self.assertEqual(len({zrn.Color(1, 2, 3), zrn.Color(1, 2, 3)}), 1)
        for bad in ((256, 0, 0), (0, -1, 0), (0, 0, 0, 300)):
            with self.assertRaisesRegex(ValueError, "0 to 255"):
                zrn.Color(*bad)

    def test_object_id_is_not_an_int(self):
        self.assertEqual(zrn.ObjectId(5), zrn.ObjectId(5))
        self.assertNotEqual(zrn.ObjectId(5), 5)
        self.assertEqual(int(zrn.ObjectId(5)), 5)
        self.assertEqual(repr(zrn.ObjectId(5)), "zrn.ObjectId(5)")
        for bad in (-1, 2**64):
            with self.assertRaises(ValueError):
                zrn.ObjectId(bad)
