#!/usr/bin/env python3
"""Opens a store the sample host wrote, prints its frame, changes one parameter,
regenerates and saves.

    python3 frame.py build/sample_host_out/model.db [bay_width]
"""
import sys

import zrn


def text(value):
    return f"{value:g}" if isinstance(value, float) else repr(value)


def show(project):
    depth = {project.root.id: 0}
    for entity in project.walk():
        if entity.parent is not None:
            depth[entity.id] = depth[entity.parent.id] + 1
        values = ", ".join(f"{name} {text(value)}" for name, value in entity.props.items())
        print(f"{'  ' * depth[entity.id]}#{entity.id} {entity.type_name}"
              + (f": {values}" if values else ""))


def listed(project, ids):
    return ", ".join(f"#{i} {project[i].type_name}" for i in ids) or "none"


def main(store, width):
    with zrn.open(store) as project:
        show(project)
        parameters = next(e for e in project.root.children if e.type_name == "parameters")
        before = parameters.props["bay_width"]
        parameters.props["bay_width"] = width
        print(f"Changed bay_width from {before:g} m to {width:g} m.")
        result = project.regenerate()
        print(f"Update order: {listed(project, result.updated)}")
        print(f"Regeneration order: {listed(project, result.regenerated)}")
        totals = project.root.children[-1]
        print(f"Span {totals.props['span']:g} m, steel {totals.props['mass']:g} kg.")
        print(f"Saved: {project.save()} rows written.")


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    main(sys.argv[1], float(sys.argv[2]) if len(sys.argv) == 3 else 9.0)
