// --window-pictures DIR: every module window shown to the person in the run
// (a grid dialog, the colour chooser, the licence) is drawn as it opens, to
// DIR/NN-Caption.png (NN counting the windows from 01; the caption's
// letters and digits kept, anything else a "-"). A picture that cannot be
// written is told on standard error and the run goes on.
#include <cstdio>
#include <cwctype>
#include <string>

#include "common/text.h"
#include "render.h"
#include "session/windows.h"
#include "window_pictures.h"

namespace vantry::cli {

void pictureWindows(const std::string &dir) {
  host::setWindowObserver([dir, count = 0](const PersonWindow &w) mutable {
    std::wstring name;
    for (wchar_t c : w.caption) name += std::iswalnum(c) ? c : L'-';
    char number[16];
    std::snprintf(number, sizeof number, "%02d-", ++count);
    std::string path = dir + "/" + number + text::toUtf8(name) + ".png";
    std::string error;
    if (!render::writeWindowPng(w, path, &error)) std::fprintf(stderr, "vantry: %s\n", error.c_str());
  });
}

}  // namespace vantry::cli
