"""Writes drawings with ezdxf, one per file version R12 to R2018, each with
the entity kinds that version holds, for the open/save/reopen tests.

usage: dxf_generate.py DIR

The drawings are made at test time (nothing big is kept in the repository).
Each holds lines, arcs, circles, points, text in several alignments, solids,
3D faces, 2D and 3D polylines, polygon and polyface meshes, a block with
attributes and its reference, a linear dimension, extended data, a dashed
linetype and a text style; from R2000 on also light polylines, MTEXT,
hatches (solid and patterned, polyline and edge boundaries), splines,
ellipses, rays, xlines, leaders, a raster image with its definition, a
wipeout, a MESH, a group, an XRECORD in an extension dictionary, a second
layout with a viewport, and from R2007 a multileader. Exits 77 (CTest's skip
code) when ezdxf is missing.
"""

import os
import sys

SKIP = 77
VERSIONS = ["R12", "R2000", "R2004", "R2007", "R2010", "R2013", "R2018"]


def common(doc, msp):
    doc.linetypes.add("DASHEDX", pattern=[0.75, 0.5, -0.25], description="Dashed __ __ __")
    doc.layers.add("DUCTS", color=3, linetype="DASHEDX")
    doc.styles.add("NARROW", font="romans.shx")
    doc.appids.add("VT_FIX")
    msp.add_line((0, 0), (100, 50), dxfattribs={"layer": "DUCTS"}).set_xdata(
        "VT_FIX", [(1000, "supply"), (1040, 2.5), (1070, 7)])
    msp.add_circle((10, 10), 5)
    msp.add_arc((20, 10), 5, 30, 250)
    msp.add_point((1, 2, 3))
    from ezdxf.enums import TextEntityAlignment
    for i, name in enumerate(["LEFT", "CENTER", "RIGHT", "MIDDLE", "TOP_LEFT", "ALIGNED", "FIT"]):
        align = TextEntityAlignment[name]
        t = msp.add_text("Duct %d" % i, dxfattribs={"height": 2.5, "style": "NARROW" if i % 2 else "Standard"})
        if name in ("ALIGNED", "FIT"):
            t.set_placement((0, 30 + 5 * i), (30, 30 + 5 * i), align=align)
        else:
            t.set_placement((0, 30 + 5 * i), align=align)
    msp.add_solid([(40, 0), (50, 0), (40, 10), (50, 10)])
    msp.add_trace([(60, 0), (70, 0), (60, 2), (70, 2)])
    msp.add_3dface([(0, 0, 0), (10, 0, 0), (10, 10, 5), (0, 10, 5)])
    msp.add_polyline2d([(0, 60), (10, 60), (10, 70)], dxfattribs={"closed": True})
    msp.add_polyline3d([(0, 0, 0), (5, 5, 5), (10, 0, 10)])
    mesh = msp.add_polymesh((3, 2))
    for m in range(3):
        for n in range(2):
            mesh.set_mesh_vertex((m, n), (m * 10, n * 10, (m + n) % 2))
    face = msp.add_polyface()
    face.append_faces([[(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)], [(0, 0, 0), (1, 0, 0), (0, 0, 1)]])
    block = doc.blocks.new("VALVE")
    block.add_circle((0, 0), 2)
    block.add_line((-2, 0), (2, 0))
    block.add_attdef("TAG", (0, -3), dxfattribs={"height": 1})
    block.add_attdef("SIZE", (0, -5), dxfattribs={"height": 1})
    ref = msp.add_blockref("VALVE", (80, 80), dxfattribs={"rotation": 30})
    ref.add_auto_attribs({"TAG": "V-1", "SIZE": "DN50"})
    msp.add_blockref("VALVE", (90, 80))
    dim = msp.add_linear_dim(base=(0, 95), p1=(0, 90), p2=(40, 90))
    dim.render()


def modern(doc, msp, version):
    msp.add_lwpolyline([(0, 100, 0, 0, 0.5), (10, 100), (10, 110)], format="xyseb", close=True)
    msp.add_mtext("Supply air\\Preturn air", dxfattribs={"char_height": 2.5, "width": 30}).set_location((50, 100))
    hatch = msp.add_hatch(color=2)
    hatch.paths.add_polyline_path([(0, 120), (20, 120), (20, 130), (0, 130)], is_closed=True)
    pattern = msp.add_hatch(color=5)
    pattern.set_pattern_fill("ANSI31", scale=0.5)
    edges = pattern.paths.add_edge_path()
    edges.add_line((30, 120), (50, 120))
    edges.add_arc((40, 120), 10, 0, 180)
    msp.add_spline([(0, 140), (10, 150), (20, 135), (30, 150)])
    msp.add_ellipse((60, 140), major_axis=(10, 0), ratio=0.5)
    msp.add_ray((0, 0), (1, 1))
    msp.add_xline((0, 0), (1, -1))
    msp.add_leader([(70, 70), (80, 80), (90, 80)])
    image_def = doc.add_image_def(filename="plan.png", size_in_pixel=(640, 480))
    msp.add_image(image_def, insert=(100, 0), size_in_units=(6.4, 4.8))
    msp.add_wipeout([(100, 20), (110, 20), (110, 30)])
    mesh = msp.add_mesh()
    with mesh.edit_data() as data:
        data.vertices = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]
        data.faces = [(0, 1, 2, 3)]
    group = doc.groups.new("RUN1")
    group.extend([e for e in msp.query("CIRCLE ARC")])
    line = msp.add_line((0, 200), (10, 200))
    xdict = line.new_extension_dict()
    record = xdict.add_xrecord("VT_DATA")
    record.reset([(1, "kept"), (40, 1.5), (70, 3)])
    layout = doc.layouts.new("Sheet A")
    layout.add_viewport(center=(100, 100), size=(150, 100), view_center_point=(50, 50), view_height=120)
    layout.add_line((0, 0), (200, 0))
    if version >= "R2007":
        from ezdxf.math import Vec2
        builder = msp.add_multileader_mtext("Standard")
        builder.set_content("Damper", char_height=2.5)
        from ezdxf.render import mleader
        builder.add_leader_line(mleader.ConnectionSide.left, [Vec2(120, 120)])
        builder.build(insert=Vec2(130, 130))


def main(argv):
    if len(argv) != 2:
        print(__doc__)
        return 2
    try:
        import ezdxf
    except ImportError:
        print("SKIP: ezdxf is not installed for %s (Debian: python3-ezdxf)" % sys.executable)
        return SKIP
    out = argv[1]
    os.makedirs(out, exist_ok=True)
    for version in VERSIONS:
        doc = ezdxf.new(version, setup=True)
        msp = doc.modelspace()
        common(doc, msp)
        if version != "R12":
            modern(doc, msp, version)
        path = os.path.join(out, "ezdxf_%s.dxf" % version)
        doc.saveas(path)
        print("%s: %d entities" % (os.path.basename(path), len(msp)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
