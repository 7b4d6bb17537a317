// ol_hvacSolid in drawing files: the stand-in the sibling module registers with the host.
//
// What other CAD programs see is the solid's faces as 3DFACEs (the one triangulated form they all
// draw) in an anonymous block with an INSERT in the solid's place: each flat face of at most four
// corners as one 3DFACE, any other face as its triangles, in world coordinates, on layer 0 with
// colour ByBlock so that the INSERT's layer and colour show; only the solid's feature edges are
// visible edges. What this module reads back is exact:
// the XRECORD holds the bodies' filing text (SolidBodies::toString: the local origin in hexadecimal
// floating point, then each body's kind tag and its shape in Open CASCADE's ASCII format), so the
// entity's placement (origin plus turned bodies) comes back to the last bit.
//
// XRECORD groups, in order, one line of the filing text after another:
//   70  format version (1)
//   2   a body's record line ("body <kind> <chars>")
//   3   the first 2000 characters of a line longer than that, repeated as needed
//   1   any other line (or the rest of a long one)
// A text value of a drawing file holds at most 2049 characters, hence the split. Reading counts each
// body's characters anew from its lines, so a program that trims the spaces at the ends of values
// (the shape format leaves some) does not spoil the file.
#include "dxf_filing.h"

#include <string>
#include <utility>
#include <vector>

#include "face.h"
#include "solid/hvac_solid.h"
#include "solid_body.h"

namespace {

constexpr int kFormat = 1;
constexpr size_t kChunk = 2000;

// The filing text is ASCII (numbers, words and line breaks), so a character is a byte.
std::wstring wide(std::string_view s) {
  return std::wstring(s.begin(), s.end());
}

Acad::ErrorStatus writeSolid(const AcDbEntity *entity, AcDbVoidPtrArray &drawable, AcDbDxfFiler *data) {
  const ol_hvacSolid *solid = ol_hvacSolid::cast(entity);
  if (!solid) return Acad::eWrongObjectType;
  for (const vantry::solid::FacePiece &f : solid->bodies().explode()) {
    AcDbFace *face = newFace(f);
    face->setColorIndex(0);
    drawable.append(face);
  }
  data->writeInt16(70, kFormat);
  // A solid read damaged goes back out as it came in, for a better tool to recover.
  std::string text = solid->unreadableText().empty() ? solid->bodies().toString() : solid->unreadableText();
  size_t at = 0;
  while (at < text.size()) {
    size_t eol = text.find('\n', at);
    if (eol == std::string::npos) eol = text.size();
    std::string_view line = std::string_view(text).substr(at, eol - at);
    at = eol + 1;
    if (line.rfind("body ", 0) == 0) {
      data->writeString(2, wide(line));
      continue;
    }
    for (; line.size() > kChunk; line.remove_prefix(kChunk))
      data->writeString(3, wide(line.substr(0, kChunk)));
    data->writeString(1, wide(line));
  }
  return Acad::eOk;
}

AcDbEntity *readSolid(const AcDbDxfFiler *data, std::wstring *why) {
  auto refuse = [why](const std::wstring &text) -> AcDbEntity * {
    if (why) *why = text;
    return nullptr;
  };
  const auto &items = data->items();
  if (items.empty() || items[0].code != 70 || items[0].integer != kFormat)
    return refuse(L"its data is not in a format this module reads");
  // The header lines, then each body's record and shape text.
  std::string header, line;
  std::vector<std::pair<std::string, std::string>> bodies;
  for (size_t i = 1; i < items.size(); ++i) {
    const AcDbDxfFiler::Item &it = items[i];
    if (it.code != 1 && it.code != 2 && it.code != 3)
      return refuse(L"its data holds group " + std::to_wstring(it.code));
    for (wchar_t ch : it.text) {
      if (ch > 0x7f) return refuse(L"its data holds a character that is not ASCII");
      line += char(ch);
    }
    if (it.code == 3) continue;
    if (it.code == 2)
      bodies.emplace_back(line, std::string());
    else
      (bodies.empty() ? header : bodies.back().second) += line + '\n';
    line.clear();
  }
  if (!line.empty()) return refuse(L"its data ends in the middle of a line");
  std::string text = header;
  for (const auto &[record, shape] : bodies) {
    // "body <kind> <chars>": the count is made anew from the lines as read.
    size_t kindEnd = record.find(' ', 5);
    text += record.substr(0, kindEnd) + ' ' + std::to_string(shape.size()) + '\n' + shape + '\n';
  }
  ol_hvacSolid *solid = ol_hvacSolid::create();
  if (!solid) return refuse(L"the class is not registered");
  if (!solid->restore(text)) {
    // A damaged shape is never trusted, and never costs the rest of the drawing: the solid is kept
    // without bodies, its text kept to be saved again as it was, and the damage said once.
    std::string reason = solid->lastError();
    solid->keepUnreadable(text, reason);
    acutPrintf(L"\nA duct solid's filed shape is damaged and was not read: %s.\n", wide(reason).c_str());
  }
  return solid;
}

}  // namespace

void registerDxfFiling() {
  acdbRegisterDxfStandIn(ol_hvacSolid::desc(), writeSolid, readSolid);
}

void unregisterDxfFiling() {
  acdbRemoveDxfStandIn(ol_hvacSolid::desc());
}
