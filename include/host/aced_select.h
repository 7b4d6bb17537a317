// Selection sets and picking, as the host's editor offers them.
//
// A selection set is named by an ads_name whose first word is the set's
// number and whose second is a tag that marks it as a set (not an entity).
// Sets live until acedSSFree or until the host resets; the caller frees
// every set acedSSGet or acedSSAdd gave it. Members keep their order of
// selection (a bulk selection lists the newest entity first); the index of
// acedSSName counts from 0. docs/selection.md has the modes, the answers a
// person may give, the filters and the geometric rules.
#pragma once

#include <cstdint>

#include "host/arx.h"

// mode: "" (the person selects), ":$" with pt1 the two prompts (an array of
// two wide strings: adding, removing), ":K" with pt2 the keywords (a wide
// string, initget style), ":S" (one answer), "_C"/"C" (crossing window
// pt1-pt2), "_W"/"W", "_CP"/"CP" (pt1 a resbuf list of RTPOINT/RT3DPOINT,
// three at least), "_WP"/"WP", "X" (the whole drawing), "A" (all but frozen
// layers), "L" (the last entity), "P" (the previous set). filter: group-code
// result buffers (may use -4 groupings), or a LISP filter list as it arrives
// as an argument (RTLB ... RTLE), or null. RTNORM with a new set in ss;
// RTERROR for a bad mode, filter or point list, or when nothing is selected
// (no set is made); RTCAN when the person cancels; RTKWORD when the person
// typed one of the ":K" keywords and no keyword callback is set.
int acedSSGet(const ACHAR *mode, const void *pt1, const void *pt2, const struct resbuf *filter, ads_name ss);
int acedSSFree(const ads_name ss);
int acedSSLength(const ads_name ss, int32_t *len);
int acedSSName(const ads_name ss, int32_t i, ads_name entity);
// Adds entity to ss (a null entity: makes a new empty set; a null ss: a new
// set with the entity); result names the set.
int acedSSAdd(const ads_name entity, const ads_name ss, ads_name result);
// RTERROR when the entity is not in the set.
int acedSSDel(const ads_name entity, const ads_name ss);
// RTNORM when the entity is in the set, else RTERROR.
int acedSSMemb(const ads_name entity, const ads_name ss);

// The keyword callback of ":K" selections: called with the global keyword
// the person typed; it answers a chain of RTENAME / RTPICKS to add, or an
// RTSTR message to show, or null. The host releases the chain.
int acedSSSetKwordCallbackPtr(struct resbuf *(*cb)(const ACHAR *));
int acedSSGetKwordCallbackPtr(struct resbuf *(**cb)(const ACHAR *));

// Picks one entity at a point from the input; a pick that finds nothing
// answers RTERROR with ERRNO 7, Enter RTERROR with ERRNO 52, Esc RTCAN, a
// keyword of a pending acedInitGet RTKWORD (fetched with acedGetInput).
int acedEntSel(const ACHAR *prompt, ads_name entity, ads_point pick);
// As acedEntSel, going down into block references (xform: block to world,
// rows the axes' images then the origin's; *refstk the references, innermost
// first, released by the caller) and to the vertex of an old-style polyline.
int acedNEntSel(const ACHAR *prompt, ads_name entity, ads_point pick, ads_point xform[4],
                struct resbuf **refstk);
