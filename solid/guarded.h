// Running a modelling step so that no exception leaves the modeller.
//
// Open CASCADE reports many failures by throwing Standard_Failure (a degenerate direction, a
// boolean that gives up, a shape file it cannot parse), and any step can run out of memory. The
// modeller promises its callers that nothing throws, so every step that calls into the library
// runs through guarded(), which turns an exception into a false answer and a reason.
#pragma once

#include <Standard_Failure.hxx>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>

namespace vantry::solid {

// What a step that threw leaves in its reason: the caller's text, ": " and the exception's own
// message; or the caller's text alone, where the library's message would tell a user nothing.
enum class Detail { kMessage, kTextOnly };

// Runs step() and answers what it answers; a step that returns nothing is answered true. When the
// step throws, why receives `failed` (followed by the exception's message as `detail` says) and the
// answer is an empty one: false, a null shape, an empty list. A step that fails without throwing
// sets why itself.
template <class Step>
auto guarded(std::string &why, const char *failed, Step &&step, Detail detail = Detail::kMessage) {
  using Answer = std::invoke_result_t<Step &>;
  constexpr bool kVoid = std::is_void_v<Answer>;
  auto record = [&](const char *message) {
    why = failed;
    if (detail == Detail::kMessage) why.append(": ").append(message);
  };
  try {
    if constexpr (kVoid) {
      step();
      return true;
    } else {
      return step();
    }
  } catch (const Standard_Failure &e) {
    record(e.GetMessageString());
  } catch (const std::exception &e) {
    record(e.what());
  }
  if constexpr (kVoid)
    return false;
  else
    return Answer{};
}

}  // namespace vantry::solid
