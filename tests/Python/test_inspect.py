"""zrn.inspect: the archive reader's structure as Python objects."""
import struct

import zrn

from support import ScratchTest


def obj(version, blocks):
    """An archived object: version, block count, then (tag, size, payload) blocks."""
    out = struct.pack("<HB", version, len(blocks))
    for tag, payload in blocks:
        out += struct.pack("<BI", tag, len(payload)) + payload
    return out


class InspectTest(ScratchTest):
    def test_nested_objects_and_raw_data(self):
        inner = obj(1, [(7, b"\x01\x02\x03")])
        data = obj(2, [(1, inner), (2, b"\xff\xfe")]) + obj(1, [])
        first, second = zrn.inspect(data)
        self.assertEqual((first.offset, first.version, first.block_count), (0, 2, 2))
        self.assertEqual((second.offset, second.end, second.blocks), (len(data) - 3, len(data), []))
        nested, raw = first.blocks
        self.assertEqual((nested.tag, nested.size, nested.offset, nested.data), (1, len(inner), 3, None))
        [child] = nested.items
        self.assertEqual((child.version, child.blocks[0].tag, child.blocks[0].data), (1, 7, b"\x01\x02\x03"))
        self.assertEqual((raw.tag, raw.data, raw.items), (2, b"\xff\xfe", []))
        self.assertEqual(zrn.inspect(b""), [])
        self.assertEqual(zrn.inspect(bytearray(obj(5, [])))[0].version, 5)

    def test_a_stored_property_entity_shows_its_properties(self):
        with zrn.create(self.path()) as project:
            entity = project.root.add_child()
            entity.props["width"] = 2.5
            entity.props["name"] = "beam"
            project.save()
            [item] = zrn.inspect(entity.blob())
        [collection] = item.blocks[0].items
        self.assertEqual(collection.name, "property collection")
        properties = [p for p in collection.parts if p.name == "property"]
        self.assertEqual([(p.id, p.text) for p in properties], [(1025, "2.5"), (1026, "beam")])
        self.assertEqual(properties[1].type_name, "wstring")
        scheme = next(p for p in collection.parts if p.name == "scheme")
        names = [e.text for product in scheme.parts for e in product.parts]
        self.assertEqual(names, ["width", "name"])

    def test_corrupt_bytes_raise_with_the_readers_message(self):
        cases = {
            "cut header": b"\x01\x00",
            "block past the end": obj(1, [(1, b"abc")])[:-1],
            "missing blocks": struct.pack("<HB", 1, 3),
        }
        for what, data in cases.items():
            with self.subTest(what), self.assertRaisesRegex(ValueError, r"at byte \d+"):
                zrn.inspect(data)
        with self.assertRaises(TypeError):
            zrn.inspect("text")

    def test_deep_nesting_is_refused_not_recursed(self):
        data = b""
        for _ in range(5000):
            data = obj(1, [(1, data or b"\x00")])
        with self.assertRaisesRegex(ValueError, "deep|depth|nest"):
            zrn.inspect(data)
