// Several solids into one STEP file: read back, the bodies keep their volumes and places.
#include "step_export.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using testing::at;
using testing::kEast;
using testing::kNorth;
using testing::rel;

TEST(StepExport, SolidsFarApartComeBackWhereTheyWere) {
  SolidBodies box, pipe, empty;
  ASSERT_TRUE(
      box.addTransition(at(100, 0, 0), true, 200, 100, at(1100, 0, 0), true, 200, 100, kEast, kEast, 0));
  ASSERT_TRUE(pipe.addTransition(at(5e5, 5e5, 30), false, 200, 0, at(5e5, 5e5 + 800, 30), false, 200, 0,
                                 kNorth, kNorth, 0));
  std::string path = (std::filesystem::temp_directory_path() / "vantry_step_export_test.step").string();
  std::string error;
  ASSERT_TRUE(writeStepFile({&box, &empty, &pipe}, path, error)) << error;
  SolidBodies back;
  ASSERT_TRUE(back.readStep(path)) << back.lastError();
  EXPECT_EQ(back.bodyCount(), 2);
  EXPECT_LT(rel(back.volume(), 1000.0 * 200 * 100 + M_PI * 100 * 100 * 800), 1e-6);
  Pt lo, hi;
  ASSERT_TRUE(back.extents(lo, hi));
  EXPECT_NEAR(lo.x, 100, 1e-4);
  EXPECT_NEAR(lo.y, -100, 1e-4);
  EXPECT_NEAR(hi.y, 5e5 + 800, 1e-3);
  EXPECT_NEAR(hi.z, 130, 1e-4);
  std::remove(path.c_str());
}

}  // namespace
}  // namespace vantry::solid
