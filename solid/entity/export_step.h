// The sibling module's own LISP function, registered per document (see export_step.cpp).
#pragma once

#include "host/arx.h"

constexpr const ACHAR *kExportStepName = L"ol_solid-exportStep";
constexpr int kExportStepCode = 1000;

void registerExportStep();
void unregisterExportStep();
