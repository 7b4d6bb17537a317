// Filing: the text form round trip (exact), STEP export and import, and damaged input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "solid_testing.h"

// The STEP translators keep a few allocations for the life of the process (their static tables
// and session), which the leak checker of the sanitizer build reports at exit. They are the
// library's, not ours: tell the checker so.
extern "C" const char *__lsan_default_suppressions() {
  return "leak:libTKXSBase.so\nleak:libTKSTEP.so\nleak:libTKSTEPBase.so\nleak:Standard_MMgrRaw::Allocate\n"
         "leak:Standard_MMgrRaw::Reallocate\n";
}

namespace vantry::solid {
namespace {

using namespace testing;

// A mixed solid far from the origin: a rectangle-to-round transition, a round elbow and a plate.
SolidBodies mixed() {
  SolidBodies s;
  EXPECT_TRUE(s.addTransition(at(3e5, 4e5, 12), true, 500, 300, at(3e5 + 400, 4e5, 12), false, 300, 0, kEast,
                              kEast, 1));
  EXPECT_TRUE(s.addRadiusElbow(at(3e5 + 400, 4e5, 12), 300, 0, 0, 0, at(3e5 + 1400, 4e5 + 1000, 12), 300, 0,
                               kEast, kNorth, false, 1.5, false, 2, true));
  EXPECT_TRUE(s.addSkin({at(3e5, 4e5, 500), at(3e5 + 100, 4e5, 500), at(3e5, 4e5 + 70, 500)}, 3));
  return s;
}

std::string tempPath(const char *name) {
  return (std::filesystem::temp_directory_path() / (std::string("vantry_solid_") + name)).string();
}

TEST(Filing, TextRoundTripKeepsVolumesExtentsAndKinds) {
  SolidBodies s = mixed();
  SolidBodies back;
  ASSERT_TRUE(back.fromString(s.toString())) << back.lastError();
  ASSERT_EQ(back.bodyCount(), 3);
  EXPECT_LT(rel(back.volume(), s.volume()), 1e-9);
  Pt lo0, hi0, lo1, hi1;
  ASSERT_TRUE(s.extents(lo0, hi0));
  ASSERT_TRUE(back.extents(lo1, hi1));
  EXPECT_EQ(lo0.x, lo1.x);  // the origin is filed exactly
  EXPECT_EQ(hi0.y, hi1.y);
  // Kinds travel with the bodies, in body order (the transition's, the elbow's, the plate's).
  auto a = back.explode();
  ASSERT_FALSE(a.empty());
  EXPECT_EQ(a.front().kind, 1);
  EXPECT_EQ(a.back().kind, 0);
  EXPECT_TRUE(std::any_of(a.begin(), a.end(), [](const FacePiece &f) { return f.kind == 2; }));
}

TEST(Filing, EmptySolidRoundTrips) {
  SolidBodies empty, back;
  ASSERT_TRUE(back.fromString(empty.toString()));
  EXPECT_EQ(back.bodyCount(), 0);
}

TEST(Filing, DamagedTextIsRefusedAndChangesNothing) {
  std::string good = mixed().toString();
  std::string cut = good.substr(0, good.size() / 2);
  std::string badCount = good;
  badCount.replace(badCount.find("bodies 3"), 8, "bodies 4");
  const std::string cases[] = {"",  "garbage", "vantry-solid 2\n", "vantry-solid 1\norigin 0 0 0\n",
                               cut, badCount};
  for (const std::string &text : cases) {
    SolidBodies s;
    ASSERT_TRUE(s.addTransition(at(0, 0, 0), true, 10, 10, at(10, 0, 0), true, 10, 10, kEast, kEast, 0));
    EXPECT_FALSE(s.fromString(text)) << text.substr(0, 40);
    EXPECT_FALSE(s.lastError().empty());
    EXPECT_EQ(s.bodyCount(), 1);
    EXPECT_LT(rel(s.volume(), 1000), 1e-12);
  }
}

TEST(Step, ExportReadsBackWithTheSameVolumeAndPlace) {
  SolidBodies s = mixed();
  std::string path = tempPath("roundtrip.step");
  ASSERT_TRUE(s.writeStep(path)) << s.lastError();
  SolidBodies back;
  ASSERT_TRUE(back.readStep(path)) << back.lastError();
  EXPECT_EQ(back.bodyCount(), 3);
  EXPECT_LT(rel(back.volume(), s.volume()), 1e-6);
  Pt lo0, hi0, lo1, hi1;
  ASSERT_TRUE(s.extents(lo0, hi0));
  ASSERT_TRUE(back.extents(lo1, hi1));
  EXPECT_NEAR(lo0.x, lo1.x, 1e-4);  // written in world coordinates
  EXPECT_NEAR(hi0.z, hi1.z, 1e-4);
  std::remove(path.c_str());
}

TEST(Step, RefusesNothingToWriteAndUnreadableFiles) {
  SolidBodies empty;
  EXPECT_FALSE(empty.writeStep(tempPath("empty.step")));
  EXPECT_FALSE(mixed().writeStep("/nonexistent-dir/x.step"));
  std::string junk = tempPath("junk.step");
  FILE *f = std::fopen(junk.c_str(), "w");
  std::fputs("not a step file\n", f);
  std::fclose(f);
  SolidBodies s = mixed();
  double before = s.volume();
  EXPECT_FALSE(s.readStep(junk));
  EXPECT_FALSE(s.readStep(tempPath("missing.step")));
  EXPECT_DOUBLE_EQ(s.volume(), before);
  std::remove(junk.c_str());
}

}  // namespace
}  // namespace vantry::solid
