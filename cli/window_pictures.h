// Pictures of the module's own windows as a run shows them (window_pictures.cpp).
#pragma once

#include <string>

namespace vantry::cli {
void pictureWindows(const std::string &dir);
}
