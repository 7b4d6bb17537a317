// MText for LISP: the laid-out metrics (width, height, ascent, descent, the
// width of the last line), the direction, normal and background mask, and
// the insertion of a new MText into model space.
#include <algorithm>
#include <cmath>
#include <cwchar>
#include <string>

#include "drawing/append.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// The shape shared by the four metric queries: one MText, opened for read
// (status 3 when it is not one), one real out.
int mtextMetric(double (*metric)(const AcDbMText &)) {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbMText> text(id, AcDb::kForRead);
  if (text.openStatus() != Acad::eOk) return 3;
  acedRetReal(metric(*text));
  return 0;
}

std::wstring contentsOf(const AcDbMText &text) {
  ACHAR *raw = text.contents();
  std::wstring s = raw ? raw : L"";
  acutDelString(raw);
  return s;
}

// True when the text, laid out at its defined width, takes more than one
// line. One line stands its nominal height plus the ink below the baseline;
// a second line adds 5/3 x height x spacing. Halfway to that second baseline
// tells the two apart whatever the font's descent.
bool wraps(const AcDbMText &text) {
  double h = text.textHeight();
  return text.actualHeight() > h * (1.0 + 5.0 / 6.0 * text.lineSpacingFactor());
}

// Cuts the laid-out lines before the last one from the text after its last
// paragraph break, the way the layout wraps them: the first line is the
// longest run of words from the start that stays on one line (at least one
// word: a word wider than the width stands alone). Leaves the last line as
// the contents of `text`, which must be open for write.
void keepLastLine(AcDbMText &text, std::wstring rest) {
  text.setContents(rest.c_str());
  while (wraps(text)) {
    // Word ends: every space that has a word before it.
    size_t firstLineEnd = std::wstring::npos;
    for (size_t pos = rest.find(L' '); pos != std::wstring::npos; pos = rest.find(L' ', pos + 1)) {
      if (pos == 0 || rest[pos - 1] == L' ') continue;
      std::wstring head = rest.substr(0, pos);
      text.setContents(head.c_str());
      if (firstLineEnd != std::wstring::npos && wraps(text)) break;
      firstLineEnd = pos;
      if (wraps(text)) break;  // one word wider than the width: a line of its own
    }
    if (firstLineEnd == std::wstring::npos) break;  // no space to break at
    size_t next = rest.find_first_not_of(L' ', firstLineEnd);
    if (next == std::wstring::npos) break;
    rest.erase(0, next);
    text.setContents(rest.c_str());
  }
  text.setContents(rest.c_str());
}

}  // namespace

int AcDbMText_actualWidth() {
  return mtextMetric([](const AcDbMText &t) { return t.actualWidth(); });
}

// Empty contents measure as the nominal height, not as the host's layout of
// nothing.
int AcDbMText_actualHeight() {
  return mtextMetric(
      [](const AcDbMText &t) { return contentsOf(t).empty() ? t.textHeight() : t.actualHeight(); });
}

// Ink above the nominal height (accents, tall capitals): never negative,
// deliberately, so callers can add it to the height as it is.
int AcDbMText_ascent() {
  return mtextMetric([](const AcDbMText &t) { return std::max(t.ascent() - t.textHeight(), 0.0); });
}

int AcDbMText_descent() {
  return mtextMetric([](const AcDbMText &t) { return t.descent(); });
}

// The direction's angle by a one-argument arc tangent, so a text reading
// leftward answers the angle of one reading rightward. Straight up and down
// answer the truncated constants the drafting code compares against.
int AcDbMText_direction() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbMText> text(id, AcDb::kForRead);
  if (text.openStatus() != Acad::eOk) return 3;
  AcGeVector3d d = text->direction();
  if (d.x != 0.0)
    acedRetReal(std::atan(d.y / d.x));
  else if (d.y > 0.0)
    acedRetReal(1.57079);
  else if (d.y < 0.0)
    acedRetReal(-1.57079);
  return 0;
}

// Arguments: ename, normal vector (as a point).
int AcDbMText_setNormal() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  ads_point n;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readPoint(args.cursor(), n)) return 2;
  AcDbObjectPointer<AcDbMText> text(id, AcDb::kForWrite);
  if (text.openStatus() != Acad::eOk) return 3;
  if (text->setNormal(AcGeVector3d(n[0], n[1], n[2])) == Acad::eOk) acedRetT();
  return 0;
}

// Arguments: ename, angle in radians about the world Z axis. A text that
// cannot be opened answers nil without a message.
int AcDbMText_setDirection() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  double angle;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readReal(args.cursor(), angle)) return 2;
  AcDbObjectPointer<AcDbMText> text(id, AcDb::kForWrite);
  if (text.openStatus() != Acad::eOk) return 0;
  AcGeVector3d d = AcGeVector3d::kXAxis;
  d.rotateBy(angle, AcGeVector3d::kZAxis);
  if (text->setDirection(d) == Acad::eOk) acedRetT();
  return 0;
}

// Arguments: ename, fill on or off, border scale. The mask takes the
// drawing's background colour.
int AcDbMText_setMask() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  bool fill;
  double scale;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readBoolean(args.cursor(), fill) ||
      !frame::readReal(args.cursor(), scale))
    return 2;
  AcDbObjectPointer<AcDbMText> text(id, AcDb::kForWrite);
  if (text.openStatus() != Acad::eOk) return 0;
  text->setBackgroundFill(fill);
  text->setBackgroundScaleFactor(scale);
  text->setUseBackgroundColor(true);
  acedRetT();
  return 0;
}

// Arguments: contents, location, [width], [style name], [attachment 1..9].
// The width position holds a number or anything else (nil) to leave it out:
// width 0, no wrapping. The style and attachment positions are read only
// when they hold a string and an integer: a value of another kind in the
// style position is left for the attachment position, and one in the
// attachment position is passed over. So (insert "x" pt 0 9) is attached at
// 9, while (insert "x" pt 0 nil 9) keeps top left. A style name the drawing
// does not have leaves the default, silently.
int AcDbMText_insert() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring contents;
  ads_point at;
  if (!frame::readString(cur, contents) || !frame::readPoint(cur, at)) return 2;
  double width = 0.0;
  if (!frame::readReal(cur, width)) {
    width = 0.0;
    frame::skipArgument(cur);
  }
  auto *text = new AcDbMText();
  text->setContents(contents.c_str());
  text->setLocation(AcGePoint3d(at[0], at[1], at[2]));
  text->setWidth(width);
  std::wstring styleName;
  if (frame::readString(cur, styleName)) {
    AcDbTextStyleTable *styles = nullptr;
    AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
    if (db && db->getTextStyleTable(styles, AcDb::kForRead) == Acad::eOk) {
      AcDbObjectId style;
      if (styles->getIdAt(styleName.c_str(), style) == Acad::eOk) text->setTextStyle(style);
      styles->close();
    }
  }
  int attachment;
  if (cur && (cur->restype == RTSHORT || cur->restype == RTLONG) && frame::readInteger(cur, attachment)) {
    // Only the nine attachment points are values of the type; anything
    // else keeps the text's own, as the host's setter would.
    if (attachment >= AcDbMText::kTopLeft && attachment <= AcDbMText::kBottomRight)
      text->setAttachment(static_cast<AcDbMText::AttachmentPoint>(attachment));
  } else
    frame::skipArgument(cur);
  // A refused append is told by its alerts; the result is then nil.
  vantry::drawing::AppendToModelSpace(text);
  vantry::drawing::returnNewEntity(text);
  return 0;
}

// The laid-out width of the last line of an MText: the text after its last
// paragraph break, less the lines that wrap before it. The entity is measured
// by trying contents on it inside a transaction and putting its own contents
// back. An entity that cannot be had as MText answers 0.0.
int AcDbMtext_lastLineWidth() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  double width = 0.0;
  // The current document's transaction manager, as every edit from LISP.
  AcApDocument *doc = acDocManager->curDocument();
  AcDbDatabase *db = doc ? doc->database() : nullptr;
  AcTransactionManager *tm = db ? db->transactionManager() : nullptr;
  if (tm) {
    tm->startTransaction();
    AcDbObject *obj = nullptr;
    AcDbMText *text = nullptr;
    if (tm->getObject(obj, id, AcDb::kForWrite) == Acad::eOk) text = AcDbMText::cast(obj);
    if (text) {
      std::wstring original = contentsOf(*text);
      std::wstring rest = original;
      for (size_t brk = rest.find(L"\\P"); brk != std::wstring::npos; brk = rest.find(L"\\P"))
        rest.erase(0, brk + 2);
      keepLastLine(*text, rest);
      width = text->actualWidth();
      text->setContents(original.c_str());
    }
    tm->endTransaction();
  }
  acedRetReal(width);
  return 0;
}

}  // namespace vantry::lispfn
