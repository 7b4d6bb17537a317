// A module's own windows: the person's queued answer, what the runner's
// observer is shown, and the window's picture.
#include <cairo.h>

#include <string>

#include "host/person.h"
#include "host_fixture.h"
#include "render.h"
#include "session/windows.h"

namespace vantry::host {
namespace {

class PersonWindowTest : public HostTest {
 protected:
  ~PersonWindowTest() override { setWindowObserver(nullptr); }
};

PersonWindow sample() {
  PersonWindow w;
  w.caption = L"Sample";
  w.text = L"Pick the systems to keep.";
  w.columns = {{L"Name", 10, PersonWindow::kTree}, {L"On", 3, PersonWindow::kCheck}};
  w.rows = {{{L"Ducts", L"1"}, 1, false, 1}, {{L"SA", L"0"}, 2, true, 0}};
  w.buttons = {L"OK", L"Cancel"};
  return w;
}

TEST_F(PersonWindowTest, OneQueuedAnswerPerWindowAndACancelWithout) {
  s().dialogAnswers.push_back(L"1.On; OK");
  std::wstring answer;
  int shown = 0;
  setWindowObserver([&](const PersonWindow &w) {
    ++shown;
    EXPECT_EQ(w.caption, L"Sample");
  });
  EXPECT_TRUE(acedPersonAnswer(sample(), &answer));
  EXPECT_EQ(answer, L"1.On; OK");
  EXPECT_FALSE(acedPersonAnswer(sample(), &answer));
  EXPECT_EQ(shown, 2) << "the observer sees every window, answered or not";
  EXPECT_EQ(s().transcript(), L"[Sample] 1.On; OK\n[Sample] -> Cancel (no answer queued)\n");
}

TEST_F(PersonWindowTest, ThePictureShowsTitleTicksAndTheDefaultButton) {
  std::string error;
  ASSERT_TRUE(render::writeWindowPng(sample(), "window.png", &error)) << error;
  cairo_surface_t *png = cairo_image_surface_create_from_png("window.png");
  ASSERT_EQ(cairo_surface_status(png), CAIRO_STATUS_SUCCESS);
  int w = cairo_image_surface_get_width(png), h = cairo_image_surface_get_height(png);
  auto *px = reinterpret_cast<uint32_t *>(cairo_image_surface_get_data(png));
  int stride = cairo_image_surface_get_stride(png) / 4;
  auto at = [&](int x, int y) { return px[y * stride + x] & 0xffffff; };
  EXPECT_EQ(at(w - 3, 2), 0x2b579au) << "title bar";
  // The grid starts below the title (28), the border (8) and one line of
  // text (16 + 8); the On column after the number (40) and Name (10 * 7 + 8).
  int gridTop = 28 + 8 + 24, onLeft = 8 + 40 + 78, onWidth = 3 * 7 + 8;
  auto darkIn = [&](int row) {
    int dark = 0;
    for (int y = gridTop + 20 * row; y < gridTop + 20 * (row + 1); ++y)
      for (int x = onLeft + 4; x < onLeft + onWidth - 4; ++x) dark += at(x, y) < 0x303030u;
    return dark;
  };
  EXPECT_GT(darkIn(1), darkIn(2) + 8) << "the ticked check of row 1 has its tick, row 2's box is empty";
  // The default button (OK, first) is outlined in the accent colour.
  int okLeft = w - 8 - 2 * (80 + 8) + 8, okTop = h - 8 - 24;
  EXPECT_EQ(at(okLeft, okTop + 12), 0x0078d7u);
  EXPECT_EQ(at(okLeft + 88, okTop + 12), 0xadadadu) << "Cancel is not outlined";
  cairo_surface_destroy(png);
  EXPECT_FALSE(render::writeWindowPng(sample(), "/nonexistent/dir/w.png", &error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace vantry::host
