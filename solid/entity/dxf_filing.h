// The sibling module's stand-in for ol_hvacSolid in drawing files (dxf_filing.cpp), registered with
// the host on start-up, after the class, and removed on unload, before it.
#pragma once

void registerDxfFiling();
void unregisterDxfFiling();
