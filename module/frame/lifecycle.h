// The module's life on the host's messages (frame/entry.cpp).
//
// Start-up loads the sibling solid module, creates the named mutex
// "OrlecVantry", seeds the random generator, starts the automation object,
// installs the editor reactor, registers the application as unlockable and
// able to work with several documents, registers the OLLeader class and
// starts COM. Each document load prints the banner and registers both
// function tables, with the document's database record between them.
// Document unload closes and forgets the document's database. Shut-down
// undoes start-up, class first and COM last; the mutex and seed stay.
#pragma once

#include <functional>

#include "host/arx.h"

namespace vantry::frame {

// A failing result of the automation object, raised as the COM support
// layer raises it. It does not describe itself: the entry point reports it
// by the last system error.
struct ComError {
  HRESULT hr;
};

// Handles one host message. May throw; acrxEntryPoint guards it.
AcRx::AppRetCode dispatchMessage(AcRx::AppMsgCode msg, void *appId);
// Runs body; an exception that describes itself (std::exception) prints
// "\nVantry General Error:  <text>", any other prints "\nSystem error <n>.\n"
// (the last system error) or "\nVantry error.\n"; both answer kRetError.
AcRx::AppRetCode guardEntry(const std::function<AcRx::AppRetCode()> &body);

bool automationRunning();
bool editorReactorInstalled();

}  // namespace vantry::frame
