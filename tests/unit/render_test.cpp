// Pictures: what the scene collector makes of a drawing, and whether the
// painted views put things where they belong, nearer faces over farther ones.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "db/db.h"
#include "render.h"

namespace vantry::render {
namespace {

AcDbObjectId append(AcDbDatabase &db, AcDbEntity *ent, const ACHAR *space = ACDB_MODEL_SPACE) {
  AcDbBlockTableRecord *ms = nullptr;
  EXPECT_EQ(acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), space), AcDb::kForWrite), Acad::eOk);
  AcDbObjectId id;
  EXPECT_EQ(ms->appendAcDbEntity(id, ent), Acad::eOk);
  ent->close();
  ms->close();
  return id;
}

double red(uint32_t argb) { return ((argb >> 16) & 0xff) / 255.0; }
double green(uint32_t argb) { return ((argb >> 8) & 0xff) / 255.0; }
double blue(uint32_t argb) { return (argb & 0xff) / 255.0; }
bool isBackground(uint32_t argb) { return (argb & 0xffffff) == 0xffffff; }

TEST(RenderScene, CurvesAreSampledFacesKeptReferencesExploded) {
  AcDbDatabase db;
  append(db, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(10, 0, 0)));
  append(db, new AcDbCircle(AcGePoint3d(5, 5, 0), AcGeVector3d::kZAxis, 2));
  append(db, new AcDbFace(AcGePoint3d(0, 0, 1), AcGePoint3d(1, 0, 1), AcGePoint3d(0, 1, 1)));
  // A block of one line, referenced twice: two polylines, moved.
  AcDbBlockTable *bt = nullptr;
  ASSERT_EQ(db.getBlockTable(bt, AcDb::kForWrite), Acad::eOk);
  auto *block = new AcDbBlockTableRecord;
  block->setName(L"MARK");
  AcDbObjectId blockId;
  ASSERT_EQ(bt->add(blockId, block), Acad::eOk);
  bt->close();
  auto *inBlock = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(0, 1, 0));
  ASSERT_EQ(block->appendAcDbEntity(inBlock), Acad::eOk);
  inBlock->close();
  block->close();
  append(db, new AcDbBlockReference(AcGePoint3d(20, 0, 0), blockId));
  append(db, new AcDbBlockReference(AcGePoint3d(30, 0, 0), blockId));
  // Paper space is not drawn.
  append(db, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 1, 0)), ACDB_PAPER_SPACE);

  std::vector<Primitive> prims = collectModelSpace(&db);
  ASSERT_EQ(prims.size(), 5u);
  EXPECT_EQ(prims[0].points.size(), 2u);  // a line is one piece
  EXPECT_FALSE(prims[0].closed);
  // The circle: closed, every sample on it.
  EXPECT_TRUE(prims[1].closed);
  EXPECT_GE(prims[1].points.size(), 60u);
  for (const AcGePoint3d &p : prims[1].points) EXPECT_NEAR(p.distanceTo(AcGePoint3d(5, 5, 0)), 2, 1e-9);
  // The triangle keeps three corners, not the repeated fourth.
  EXPECT_EQ(prims[2].kind, Primitive::Face);
  EXPECT_EQ(prims[2].points.size(), 3u);
  EXPECT_NEAR(prims[3].points[1].x, 20, 1e-12);
  EXPECT_NEAR(prims[3].points[1].y, 1, 1e-12);
  EXPECT_NEAR(prims[4].points[0].x, 30, 1e-12);
}

TEST(RenderScene, ColoursComeFromTheEntityOrItsLayer) {
  AcDbDatabase db;
  auto *redLine = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0));
  redLine->setDatabaseDefaults(&db);
  redLine->setColorIndex(1);
  append(db, redLine);
  append(db, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(0, 1, 0)));  // by layer "0": white/black
  std::vector<Primitive> prims = collectModelSpace(&db);
  ASSERT_EQ(prims.size(), 2u);
  EXPECT_GT(prims[0].color.r, 0.7);
  EXPECT_LT(prims[0].color.g, 0.3);
  EXPECT_LT(prims[1].color.r + prims[1].color.g + prims[1].color.b, 0.5);
}

// Two squares over the same place, the red one above (z = 1) the blue one
// (z = 0): both views must show red where they overlap, whatever order they
// come in, and blue where only the blue one is.
TEST(RenderPicture, NearerFacesHideFartherOnes) {
  auto square = [](double z, double x0, Rgb color) {
    Primitive p;
    p.kind = Primitive::Face;
    p.color = color;
    p.points = {{x0, 0, z}, {x0 + 10, 0, z}, {x0 + 10, 10, z}, {x0, 10, z}};
    return p;
  };
  for (bool redFirst : {true, false}) {
    std::vector<Primitive> prims;
    Primitive redSquare = square(1, 0, {1, 0, 0}), blueSquare = square(0, 5, {0, 0, 1});
    if (redFirst) {
      prims = {redSquare, blueSquare};
    } else {
      prims = {blueSquare, redSquare};
    }
    std::vector<Placement> placements;
    Picture pic = draw(prims, Options{}, &placements);
    ASSERT_EQ(placements.size(), 2u);
    for (const Placement &pl : placements) {
      double x, y;
      pl.toPixel(AcGePoint3d(7.5, 5, 1), x, y);  // in both squares: red on top
      uint32_t over = pic.at(int(x), int(y));
      EXPECT_GT(red(over), 0.3) << redFirst;
      EXPECT_LT(blue(over), 0.05) << redFirst;
      pl.toPixel(AcGePoint3d(13, 5, 0), x, y);  // the blue one alone
      uint32_t alone = pic.at(int(x), int(y));
      EXPECT_GT(blue(alone), 0.3) << redFirst;
      EXPECT_LT(red(alone), 0.05) << redFirst;
      // Just outside both: background, inside the panel (fitted, not cropped).
      pl.toPixel(AcGePoint3d(-0.3, 5, 1), x, y);
      EXPECT_TRUE(isBackground(pic.at(int(x), int(y))));
      EXPECT_GE(x, pl.panelX);
      pl.toPixel(AcGePoint3d(15, 10, 0), x, y);
      EXPECT_LT(x, pl.panelX + pl.panelWidth);
    }
  }
}

// A face seen edge-on in plan (vertical) is darker there than one facing the
// viewer; the shading follows the light, not the order of the corners.
TEST(RenderPicture, ShadingFollowsTheFaceNormalOnBothSides) {
  Primitive flat;
  flat.kind = Primitive::Face;
  flat.color = {0, 1, 0};
  flat.points = {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}};
  Primitive flipped = flat;
  std::reverse(flipped.points.begin(), flipped.points.end());
  Options plan;
  plan.isometric = false;
  std::vector<Placement> pl1, pl2;
  Picture a = draw({flat}, plan, &pl1), b = draw({flipped}, plan, &pl2);
  double x, y;
  pl1[0].toPixel(AcGePoint3d(5, 5, 0), x, y);
  EXPECT_NEAR(green(a.at(int(x), int(y))), green(b.at(int(x), int(y))), 1e-9);
  EXPECT_GT(green(a.at(int(x), int(y))), 0.35);
}

// A 3D face's visible edges are drawn as dark lines, its invisible ones (the
// sides inside an exploded solid's triangulated faces) not; a triangle's
// closing side is its edge 3.
TEST(RenderPicture, FacesDrawTheirVisibleEdgesOnly) {
  AcDbDatabase db;
  append(db, new AcDbFace(AcGePoint3d(0, 0, 0), AcGePoint3d(10, 0, 0), AcGePoint3d(10, 10, 0), AcGePoint3d(0, 10, 0),
                          true, false, true, false));
  append(db, new AcDbFace(AcGePoint3d(20, 0, 0), AcGePoint3d(30, 0, 0), AcGePoint3d(20, 10, 0), false, true, true,
                          false));
  std::vector<Primitive> prims = collectModelSpace(&db);
  ASSERT_EQ(prims.size(), 2u);
  EXPECT_EQ(prims[0].edges, (std::vector<bool>{true, false, true, false}));
  EXPECT_EQ(prims[1].edges, (std::vector<bool>{false, true, false}));
  for (Primitive &p : prims) p.color = {1, 0, 0};
  Options plan;
  plan.isometric = false;
  std::vector<Placement> pl;
  Picture pic = draw(prims, plan, &pl);
  // The darkest red about a point: an edge line is drawn there when it is dark.
  auto darkest = [&](double x, double y) {
    double px, py, least = 1;
    pl[0].toPixel(AcGePoint3d(x, y, 0), px, py);
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) least = std::min(least, red(pic.at(int(px) + dx, int(py) + dy)));
    return least;
  };
  EXPECT_LT(darkest(5, 0), 0.5);  // visible
  EXPECT_LT(darkest(5, 10), 0.5);
  EXPECT_GT(darkest(10, 5), 0.7);  // invisible: the face's own shade or the ground
  EXPECT_GT(darkest(0, 5), 0.7);
  EXPECT_GT(darkest(25, 0), 0.7);
  EXPECT_LT(darkest(25, 5), 0.5);  // the triangle's long side, edge 1
}

// An entity kept as the groups a drawing file gave it (TEXT, HATCH ...).
AcDbObjectId appendKept(AcDbDatabase &db, const wchar_t *type, std::vector<AcDbDxfFiler::Item> groups,
                        AcDbObjectId btr = AcDbObjectId::kNull) {
  auto *e = new vantry::host::VerbatimEntity(type);
  e->setDatabaseDefaults(&db);
  AcDbDxfFiler f(true);
  f.items() = std::move(groups);
  EXPECT_EQ(e->dxfInFields(&f), Acad::eOk);
  if (btr.isNull()) return append(db, e);
  AcDbBlockTableRecord *rec = nullptr;
  EXPECT_EQ(acdbOpenObject(rec, btr, AcDb::kForWrite), Acad::eOk);
  AcDbObjectId id;
  EXPECT_EQ(rec->appendAcDbEntity(id, e), Acad::eOk);
  e->close();
  rec->close();
  return id;
}
AcDbDxfFiler::Item group(int code, double x, double y = NAN, double z = 0) {
  AcDbDxfFiler::Item it;
  it.code = code;
  it.real[0] = x;
  if (!std::isnan(y)) {
    it.real[1] = y;
    it.real[2] = z;
    it.dims = 3;
  }
  return it;
}
AcDbDxfFiler::Item group(int code, int64_t i) {
  AcDbDxfFiler::Item it;
  it.code = code;
  it.integer = i;
  return it;
}
AcDbDxfFiler::Item group(int code, const wchar_t *text) {
  AcDbDxfFiler::Item it;
  it.code = code;
  it.text = text;
  return it;
}

// A TEXT kept as read is placed by its justification and measured with the
// font's metrics: centred on its second point, twice the value twice as
// long, turned by its rotation; inside a block it is drawn at the
// reference's place (the block's other entities too), the block's attribute
// definitions not; MText is laid out line by line.
TEST(RenderScene, KeptTextsArePlacedByTheirJustificationAndMetrics) {
  AcDbDatabase db;
  auto text = [&](const wchar_t *value, int64_t justify, double angle, AcDbObjectId btr = AcDbObjectId::kNull) {
    return appendKept(db, L"TEXT",
                      {group(100, L"AcDbText"), group(10, 0.0, 0.0), group(40, 2.0), group(1, value),
                       group(50, angle), group(72, justify), group(11, 50.0, 10.0), group(100, L"AcDbText")},
                      btr);
  };
  text(L"Duct", 1, 0);
  text(L"DuctDuct", 1, 90);
  text(L"Left", 0, 0);
  std::vector<Primitive> prims = collectModelSpace(&db);
  ASSERT_EQ(prims.size(), 3u);
  for (const Primitive &p : prims) {
    EXPECT_EQ(p.kind, Primitive::Text);
    EXPECT_DOUBLE_EQ(p.height, 2.0);
    EXPECT_GT(p.width, 2.0);
  }
  EXPECT_NEAR(prims[1].width, 2 * prims[0].width, 0.05 * prims[0].width);
  EXPECT_NEAR(prims[0].points[0].x, 50 - prims[0].width / 2, 1e-9);
  EXPECT_NEAR(prims[0].points[0].y, 10, 1e-9);
  EXPECT_NEAR(prims[1].direction.y, 1, 1e-12);  // turned a right angle: the line runs up
  EXPECT_NEAR(prims[1].points[0].y, 10 - prims[1].width / 2, 1e-9);
  EXPECT_NEAR(prims[2].points[0].x, 0, 1e-12);  // left-justified: on its first point

  AcDbDatabase blocks;
  AcDbBlockTable *bt = nullptr;
  ASSERT_EQ(blocks.getBlockTable(bt, AcDb::kForWrite), Acad::eOk);
  auto *tag = new AcDbBlockTableRecord;
  tag->setName(L"TAG");
  AcDbObjectId tagId;
  ASSERT_EQ(bt->add(tagId, tag), Acad::eOk);
  tag->close();
  bt->close();
  appendKept(blocks, L"TEXT",
             {group(100, L"AcDbText"), group(10, 1.0, 0.0), group(40, 1.0), group(1, L"V"), group(100, L"AcDbText")},
             tagId);
  appendKept(blocks, L"ATTDEF",
             {group(100, L"AcDbText"), group(10, 0.0, 0.0), group(40, 1.0), group(1, L""),
              group(100, L"AcDbAttributeDefinition"), group(2, L"NO")},
             tagId);
  append(blocks, new AcDbBlockReference(AcGePoint3d(100, 0, 0), tagId));
  auto *mtext = new AcDbMText;
  mtext->setDatabaseDefaults(&blocks);
  mtext->setContents(L"Supply\\PReturn");
  mtext->setTextHeight(2.5);
  mtext->setLocation(AcGePoint3d(0, 50, 0));
  append(blocks, mtext);
  prims = collectModelSpace(&blocks);
  ASSERT_EQ(prims.size(), 3u);
  EXPECT_EQ(prims[0].text, L"V");
  EXPECT_NEAR(prims[0].points[0].x, 101, 1e-9);
  EXPECT_EQ(prims[1].text, L"Supply");
  EXPECT_EQ(prims[2].text, L"Return");
  EXPECT_NEAR(prims[1].points[0].y, 50 - 2.5, 1e-9);  // the first baseline a cap height below the top
  EXPECT_LT(prims[2].points[0].y, prims[1].points[0].y - 2.5);
}

// A text lying in plan is drawn in both views, slanted in the isometric one
// (its letters stand along the plan's y); a text standing on edge to the
// view, or with a non-number in its place, paints nothing.
TEST(RenderPicture, TextsAreDrawnInTheirPlaneInBothViews) {
  Primitive frame;  // a square around the text, so both views fit the same area
  frame.points = {{0, -10, 0}, {100, -10, 0}, {100, 30, 0}, {0, 30, 0}};
  frame.closed = true;
  frame.color = {0, 0, 1};
  Primitive text;
  text.kind = Primitive::Text;
  text.text = L"HHHHHHHH";
  text.color = {1, 0, 0};
  text.points = {{10, 0, 0}};
  text.height = 10;
  text.width = 80;
  auto redInside = [](const Picture &pic, const Placement &pl, const AcGePoint3d &a, const AcGePoint3d &b) {
    double x0, y0, x1, y1;
    pl.toPixel(a, x0, y0);
    pl.toPixel(b, x1, y1);
    int n = 0;
    for (int y = int(std::min(y0, y1)); y <= int(std::max(y0, y1)); ++y)
      for (int x = int(std::min(x0, x1)); x <= int(std::max(x0, x1)); ++x)
        n += red(pic.at(x, y)) > 0.6 && blue(pic.at(x, y)) < 0.4;
    return n;
  };
  std::vector<Placement> pl;
  Picture pic = draw({frame, text}, Options{}, &pl);
  ASSERT_EQ(pl.size(), 2u);
  for (const Placement &p : pl) {
    // Red in the box of the letters (the middle of the line, half-way up
    // them), none away from them.
    EXPECT_GT(redInside(pic, p, AcGePoint3d(40, 3, 0), AcGePoint3d(60, 7, 0)), 10);
    EXPECT_EQ(redInside(pic, p, AcGePoint3d(40, 18, 0), AcGePoint3d(60, 28, 0)), 0);
  }
  Primitive edgeOn = text, broken = text;
  edgeOn.up = AcGeVector3d::kZAxis;  // standing up: seen edge-on in plan
  broken.points = {{NAN, 0, 0}};
  Options plan;
  plan.isometric = false;
  pic = draw({frame, edgeOn, broken}, plan, &pl);
  EXPECT_EQ(redInside(pic, pl[0], AcGePoint3d(0, -10, 0), AcGePoint3d(100, 30, 0)), 0);
  pic = draw({frame, broken, text}, plan, &pl);
  EXPECT_GT(redInside(pic, pl[0], AcGePoint3d(40, 3, 0), AcGePoint3d(60, 7, 0)), 10) << "a broken text stops nothing";
}

// A HATCH kept as read is filled inside its outer loop and open inside its
// island, its boundaries drawn as lines; a polyline loop's bulge makes an
// arc.
TEST(RenderPicture, KeptHatchesAreFilledInsideTheirBoundaries) {
  AcDbDatabase db;
  auto polyLoop = [](std::vector<AcDbDxfFiler::Item> &g, std::vector<std::pair<double, double>> pts, double bulge) {
    g.push_back(group(92, int64_t(2)));
    g.push_back(group(72, int64_t(bulge != 0)));
    g.push_back(group(73, int64_t(1)));
    g.push_back(group(93, int64_t(pts.size())));
    for (auto [x, y] : pts) {
      g.push_back(group(10, x, y));
      if (bulge != 0) g.push_back(group(42, bulge));
    }
    g.push_back(group(97, int64_t(0)));
  };
  std::vector<AcDbDxfFiler::Item> g = {group(100, L"AcDbHatch"), group(10, 0.0, 0.0), group(210, 0.0, 0.0, 1.0),
                                       group(2, L"SOLID"), group(70, int64_t(1)), group(71, int64_t(0)),
                                       group(91, int64_t(2))};
  polyLoop(g, {{0, 0}, {100, 0}, {100, 100}, {0, 100}}, 0);
  polyLoop(g, {{40, 40}, {60, 40}, {60, 60}, {40, 60}}, 0);
  g.push_back(group(75, int64_t(0)));
  g.push_back(group(76, int64_t(1)));
  AcDbObjectId id = appendKept(db, L"HATCH", g);
  {
    AcDbEntity *e = nullptr;
    ASSERT_EQ(acdbOpenObject(e, id, AcDb::kForWrite), Acad::eOk);
    e->setColorIndex(1);
    e->close();
  }
  std::vector<Primitive> prims = collectModelSpace(&db);
  ASSERT_EQ(prims.size(), 3u);  // two boundary lines and the fill
  ASSERT_EQ(prims[2].kind, Primitive::Fill);
  EXPECT_EQ(prims[2].loops.size(), 2u);
  Options plan;
  plan.isometric = false;
  std::vector<Placement> pl;
  Picture pic = draw(prims, plan, &pl);
  auto at = [&](double x, double y) {
    double px, py;
    pl[0].toPixel(AcGePoint3d(x, y, 0), px, py);
    return pic.at(int(px), int(py));
  };
  EXPECT_GT(red(at(20, 20)), 0.7);
  EXPECT_LT(green(at(20, 20)), 0.3);
  EXPECT_TRUE(isBackground(at(50, 50))) << "the island stays open";

  // One loop of two points and bulges of 1: a circle of diameter 10.
  std::vector<AcDbDxfFiler::Item> round = {group(100, L"AcDbHatch"), group(10, 0.0, 0.0), group(70, int64_t(1)),
                                           group(91, int64_t(1))};
  polyLoop(round, {{0, 0}, {10, 0}}, 1);
  AcDbDatabase circle;
  appendKept(circle, L"HATCH", round);
  prims = collectModelSpace(&circle);
  ASSERT_EQ(prims.size(), 2u);
  ASSERT_GT(prims[0].points.size(), 20u);
  for (const AcGePoint3d &p : prims[0].points) EXPECT_NEAR(p.distanceTo(AcGePoint3d(5, 0, 0)), 5, 1e-9);

  // An edge loop whose arc angles a damaged file made huge or not numbers:
  // the sweep is taken modulo a turn (adding turns to reach the end angle
  // never ended), a non-number arc is left out, the picture is drawn.
  std::vector<AcDbDxfFiler::Item> damaged = {group(100, L"AcDbHatch"), group(70, int64_t(1)), group(91, int64_t(1)),
                                             group(92, int64_t(1)), group(93, int64_t(3)),
                                             group(72, int64_t(2)), group(10, 0.0, 0.0), group(40, 5.0),
                                             group(50, 1e300), group(51, 0.0), group(73, int64_t(1)),
                                             group(72, int64_t(2)), group(10, 0.0, 0.0), group(40, 5.0),
                                             group(50, NAN), group(51, 90.0), group(73, int64_t(1)),
                                             group(72, int64_t(1)), group(10, 0.0, 0.0), group(11, 5.0, 0.0),
                                             group(97, int64_t(0))};
  AcDbDatabase broken;
  appendKept(broken, L"HATCH", damaged);
  prims = collectModelSpace(&broken);
  ASSERT_EQ(prims.size(), 2u);
  EXPECT_LE(prims[0].points.size(), 800u);
  EXPECT_EQ(draw(prims, plan).width, plan.width);
}

TEST(RenderFile, WritesAPngAndKeepsTheOldOneOnFailure) {
  AcDbDatabase db;
  append(db, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(10, 3, 0)));
  std::filesystem::path dir = std::filesystem::temp_directory_path() / "vantry_render_test";
  std::filesystem::create_directories(dir);
  std::string png = (dir / "plan.png").string();
  std::string error;
  ASSERT_TRUE(writePng(&db, png, Options{}, &error)) << error;
  FILE *f = std::fopen(png.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  unsigned char sig[8] = {};
  EXPECT_EQ(std::fread(sig, 1, 8, f), 8u);
  std::fclose(f);
  EXPECT_EQ(sig[1], 'P');
  EXPECT_EQ(sig[2], 'N');
  auto size = std::filesystem::file_size(png);
  Options bad;
  bad.width = 0;
  EXPECT_FALSE(writePng(&db, png, bad, &error));
  EXPECT_NE(error.find("size"), std::string::npos);
  EXPECT_FALSE(writePng(&db, (dir / "no/such/dir.png").string(), Options{}, &error));
  EXPECT_EQ(std::filesystem::file_size(png), size);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace vantry::render
