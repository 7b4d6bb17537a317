// Selection sets and picking, as the host's editor offers them.
//
// A selection set is named by an ads_name whose first word is the set's
// number and whose second is a tag that marks it as a set (not an entity).
// Sets live until acedSSFree or until the host resets; the caller frees
// every set acedSSGet or acedSSAdd gave it. Members keep their order of
// selection; the index of acedSSName counts from 0.
#pragma once

#include <cstdint>

#include "host/arx.h"

// mode: "" (the person selects), ":$" with pt1 the two prompts, ":K" with pt2
// the keywords, "_C"/"C" (crossing window pt1-pt2), "_W"/"W", "_CP"/"CP"
// (pt1 a resbuf list of points), "_WP"/"WP", "X" (the whole drawing), "L"
// (the last entity), "P" (the previous set). filter: a group-code resbuf list
// (may use -4 groupings), or null.
int acedSSGet(const ACHAR *mode, const void *pt1, const void *pt2, const struct resbuf *filter, ads_name ss);
int acedSSFree(const ads_name ss);
int acedSSLength(const ads_name ss, int32_t *len);
int acedSSName(const ads_name ss, int32_t i, ads_name entity);
// Adds entity to ss (a null entity: makes a new empty set; a null ss: a new
// set with the entity); result names the set.
int acedSSAdd(const ads_name entity, const ads_name ss, ads_name result);
int acedSSDel(const ads_name entity, const ads_name ss);
int acedSSMemb(const ads_name entity, const ads_name ss);

// Picks one entity at a point from the input; a pick that finds nothing
// answers RTERROR with ERRNO 7.
int acedEntSel(const ACHAR *prompt, ads_name entity, ads_point pick);
int acedNEntSel(const ACHAR *prompt, ads_name entity, ads_point pick, ads_point xform[4],
                struct resbuf **refstk);
