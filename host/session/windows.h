// For the runner: who is told of every module window shown to the person
// (include/host/person.h), to draw it as a picture. One observer; none by
// default.
#pragma once

#include <functional>

#include "host/person.h"

namespace vantry::host {

using WindowObserver = std::function<void(const PersonWindow &)>;
void setWindowObserver(WindowObserver observer);

}  // namespace vantry::host
