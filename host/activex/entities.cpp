// The object model's entities: the properties every entity has (Layer,
// Color, Linetype, Lineweight, Visible ...), those of lines, circles, arcs,
// light polylines, multiline text and block references, the methods that
// change an entity (Delete, Move, Copy, Rotate, Update), and the Add...
// methods of blocks that make new ones through the drawing database.
#include <cmath>

#include "activex/internal.h"

namespace vantry::host::activex {
namespace {

template <class T>
bool isA(const Target &t) {
  return t.is(T::desc());
}
bool isLengthCurve(const Target &t) {
  return isA<AcDbLine>(t) || isA<AcDbPolyline>(t) || isA<AcDb2dPolyline>(t) || isA<AcDb3dPolyline>(t);
}
bool isAreaCurve(const Target &t) {
  return isA<AcDbArc>(t) || isA<AcDbPolyline>(t) || isA<AcDb2dPolyline>(t);
}
bool isPolyline(const Target &t) {
  return isA<AcDbPolyline>(t) || isA<AcDb2dPolyline>(t) || isA<AcDb3dPolyline>(t);
}

Value str(std::wstring s) {
  return lisp::makeString(std::move(s));
}
Value takeString(ACHAR *s) {
  Value v = str(s ? s : L"");
  acutDelString(s);
  return v;
}

// Getter and setter of a point or real member of one class.
template <class T, AcGePoint3d (T::*Get)() const>
Value getPoint(Interp &in, const Target &t) {
  return withRead<T>(in, t, [](T *o) { return pointVariant((o->*Get)()); });
}
template <class T, Acad::ErrorStatus (T::*Set)(const AcGePoint3d &)>
void putPoint(Interp &in, const Target &t, const Value &v) {
  AcGePoint3d p = pointArg(in, v);
  withWrite<T>(in, t, [&](T *o) { return (o->*Set)(p); });
}
template <class T, double (T::*Get)() const>
Value getReal(Interp &in, const Target &t) {
  return withRead<T>(in, t, [](T *o) { return Value::real((o->*Get)()); });
}
template <class T, Acad::ErrorStatus (T::*Set)(double)>
void putReal(Interp &in, const Target &t, const Value &v) {
  double d = realArg(in, v);
  withWrite<T>(in, t, [&](T *o) { return (o->*Set)(d); });
}

// --- Every entity

Value getLayer(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [](AcDbEntity *e) { return takeString(e->layer()); });
}
void putLayer(Interp &in, const Target &t, const Value &v) {
  AcDbObjectId layer = recordId(t.db->layerTableId(), stringArg(in, v));
  if (layer.isNull() || layer.isErased()) automationError(in, L"Key not found");
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setLayer(layer); });
}
Value getColor(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [](AcDbEntity *e) { return Value::integer(e->colorIndex()); });
}
void putColor(Interp &in, const Target &t, const Value &v) {
  int index = integerArg(in, v);
  if (index < 0 || index > 256) automationError(in, L"Invalid input");
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setColorIndex(Adesk::UInt16(index)); });
}
Value getLinetype(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [](AcDbEntity *e) { return takeString(e->linetype()); });
}
void putLinetype(Interp &in, const Target &t, const Value &v) {
  std::wstring name = stringArg(in, v);
  AcDbObjectId lt = recordId(t.db->linetypeTableId(), name);
  if (lt.isNull() || lt.isErased()) automationError(in, L"Key not found");
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setLinetype(lt); });
}
Value getLineweight(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [](AcDbEntity *e) { return Value::integer(e->lineWeight()); });
}
// Lineweights: by layer, by block, the default, or hundredths of a
// millimetre from the host's list.
void putLineweight(Interp &in, const Target &t, const Value &v) {
  static const int kWeights[] = {-3, -2, -1, 0,  5,  9,  13, 15,  18,  20,  25,  30,  35,  40, 50,
                                 53, 60, 70, 80, 90, 100, 106, 120, 140, 158, 200, 211};
  int w = integerArg(in, v);
  if (std::find(std::begin(kWeights), std::end(kWeights), w) == std::end(kWeights)) automationError(in, L"Invalid input");
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setLineWeight(AcDb::LineWeight(w)); });
}
Value getLinetypeScale(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [](AcDbEntity *e) { return Value::real(e->linetypeScale()); });
}
void putLinetypeScale(Interp &in, const Target &t, const Value &v) {
  double s = realArg(in, v);
  if (!(s > 0)) automationError(in, L"Invalid input");
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setLinetypeScale(s); });
}
Value getVisible(Interp &in, const Target &t) {
  return withRead<AcDbEntity>(in, t, [&](AcDbEntity *e) { return vlaBool(in, e->visibility() == AcDb::kVisible); });
}
void putVisible(Interp &in, const Target &t, const Value &v) {
  bool b = boolArg(in, v);
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->setVisibility(b ? AcDb::kVisible : AcDb::kInvisible); });
}

// --- Curves

Value getLength(Interp &in, const Target &t) {
  return withRead<AcDbCurve>(in, t, [&](AcDbCurve *c) {
    double end = 0, len = 0;
    if (c->getEndParam(end) != Acad::eOk || c->getDistAtParam(end, len) != Acad::eOk) len = 0;
    return Value::real(len);
  });
}
Value getArea(Interp &in, const Target &t) {
  return withRead<AcDbCurve>(in, t, [&](AcDbCurve *c) {
    double a = 0;
    if (c->getArea(a) != Acad::eOk) a = 0;
    return Value::real(std::fabs(a));
  });
}
Value getCurveStart(Interp &in, const Target &t) {
  return withRead<AcDbCurve>(in, t, [](AcDbCurve *c) {
    AcGePoint3d p;
    c->getStartPoint(p);
    return pointVariant(p);
  });
}
Value getCurveEnd(Interp &in, const Target &t) {
  return withRead<AcDbCurve>(in, t, [](AcDbCurve *c) {
    AcGePoint3d p;
    c->getEndPoint(p);
    return pointVariant(p);
  });
}
Value getLineAngle(Interp &in, const Target &t) {
  return withRead<AcDbLine>(in, t, [](AcDbLine *l) {
    AcGeVector3d d = l->endPoint() - l->startPoint();
    double a = std::atan2(d.y, d.x);
    return Value::real(a < 0 ? a + 2 * M_PI : a);
  });
}
template <class T>
Value getNormal(Interp &in, const Target &t) {
  return withRead<T>(in, t, [](T *o) {
    AcGeVector3d n = o->normal();
    return pointVariant(AcGePoint3d(n.x, n.y, n.z));
  });
}

// Circles: the diameter, circumference and area are the radius's too.
Value getCircleMeasure(Interp &in, const Target &t, double (*of)(double)) {
  return withRead<AcDbCircle>(in, t, [&](AcDbCircle *c) { return Value::real(of(c->radius())); });
}
void putCircleMeasure(Interp &in, const Target &t, const Value &v, double (*radiusOf)(double)) {
  double r = radiusOf(realArg(in, v));
  if (!(r > 0) || !std::isfinite(r)) automationError(in, L"Invalid input");
  withWrite<AcDbCircle>(in, t, [&](AcDbCircle *c) { return c->setRadius(r); });
}

Value getArcLength(Interp &in, const Target &t) {
  return withRead<AcDbArc>(in, t, [](AcDbArc *a) { return Value::real(a->radius() * a->totalAngle()); });
}

// Light polylines: Coordinates are x y pairs in the polyline's plane.
Value getCoordinates(Interp &in, const Target &t) {
  return withRead<AcDbPolyline>(in, t, [](AcDbPolyline *p) {
    std::vector<double> xy;
    for (unsigned i = 0; i < p->numVerts(); ++i) {
      AcGePoint2d q;
      p->getPointAt(i, q);
      xy.push_back(q.x);
      xy.push_back(q.y);
    }
    return doubleArray(xy);
  });
}
void putCoordinates(Interp &in, const Target &t, const Value &v) {
  std::vector<double> xy = doublesArg(in, v);
  if (xy.size() < 4 || xy.size() % 2) automationError(in, L"Invalid input");
  withWrite<AcDbPolyline>(in, t, [&](AcDbPolyline *p) {
    unsigned n = unsigned(xy.size() / 2);
    while (p->numVerts() > n) p->removeVertexAt(p->numVerts() - 1);
    for (unsigned i = 0; i < n; ++i) {
      AcGePoint2d q(xy[2 * i], xy[2 * i + 1]);
      Acad::ErrorStatus es = i < p->numVerts() ? p->setPointAt(i, q) : p->addVertexAt(i, q);
      if (es != Acad::eOk) return es;
    }
    return Acad::eOk;
  });
}
Value getClosed(Interp &in, const Target &t) {
  return withRead<AcDbCurve>(in, t, [&](AcDbCurve *c) { return vlaBool(in, c->isClosed()); });
}
void putClosed(Interp &in, const Target &t, const Value &v) {
  bool closed = boolArg(in, v);
  withWrite<AcDbCurve>(in, t, [&](AcDbCurve *c) {
    if (auto *p = AcDbPolyline::cast(c)) {
      p->setClosed(closed);
      return Acad::eOk;
    }
    if (auto *p = AcDb2dPolyline::cast(c)) return closed ? p->makeClosed() : p->makeOpen();
    if (auto *p = AcDb3dPolyline::cast(c)) return closed ? p->makeClosed() : p->makeOpen();
    return Acad::eNotApplicable;
  });
}

// --- Multiline text

Value getTextString(Interp &in, const Target &t) {
  return withRead<AcDbMText>(in, t, [](AcDbMText *m) { return takeString(m->contents()); });
}
void putTextString(Interp &in, const Target &t, const Value &v) {
  std::wstring text = stringArg(in, v);
  withWrite<AcDbMText>(in, t, [&](AcDbMText *m) {
    m->setContents(text.c_str());
    return Acad::eOk;
  });
}
Value getAttachment(Interp &in, const Target &t) {
  return withRead<AcDbMText>(in, t, [](AcDbMText *m) { return Value::integer(m->attachment()); });
}
void putAttachment(Interp &in, const Target &t, const Value &v) {
  int a = integerArg(in, v);
  if (a < 1 || a > 9) automationError(in, L"Invalid input");
  withWrite<AcDbMText>(in, t, [&](AcDbMText *m) { return m->setAttachment(AcDbMText::AttachmentPoint(a)); });
}
Value getStyleName(Interp &in, const Target &t) {
  return withRead<AcDbMText>(in, t, [](AcDbMText *m) { return str(recordName(m->textStyle())); });
}
void putStyleName(Interp &in, const Target &t, const Value &v) {
  AcDbObjectId style = recordId(t.db->textStyleTableId(), stringArg(in, v));
  if (style.isNull() || style.isErased()) automationError(in, L"Key not found");
  withWrite<AcDbMText>(in, t, [&](AcDbMText *m) { return m->setTextStyle(style); });
}

// --- Block references

Value getBlockName(Interp &in, const Target &t) {
  return withRead<AcDbBlockReference>(in, t, [](AcDbBlockReference *r) { return str(recordName(r->blockTableRecord())); });
}
template <int Axis>
Value getScale(Interp &in, const Target &t) {
  return withRead<AcDbBlockReference>(in, t, [](AcDbBlockReference *r) {
    AcGeScale3d s = r->scaleFactors();
    return Value::real(Axis == 0 ? s.sx : Axis == 1 ? s.sy : s.sz);
  });
}
template <int Axis>
void putScale(Interp &in, const Target &t, const Value &v) {
  double d = realArg(in, v);
  if (d == 0 || !std::isfinite(d)) automationError(in, L"Invalid input");
  withWrite<AcDbBlockReference>(in, t, [&](AcDbBlockReference *r) {
    AcGeScale3d s = r->scaleFactors();
    (Axis == 0 ? s.sx : Axis == 1 ? s.sy : s.sz) = d;
    return r->setScaleFactors(s);
  });
}

// --- Methods of every entity

Value callDelete(Interp &in, const Target &t, const Value *, int n) {
  methodArgs(in, n, 0, 0);
  withWrite<AcDbEntity>(in, t, [](AcDbEntity *e) { return e->erase(); });
  return Value();
}
Value callMove(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 2, 2);
  AcGePoint3d from = pointArg(in, a[0]), to = pointArg(in, a[1]);
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) { return e->transformBy(AcGeMatrix3d::translation(to - from)); });
  return Value();
}
Value callRotate(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 2, 2);
  AcGePoint3d base = pointArg(in, a[0]);
  double angle = realArg(in, a[1]);
  withWrite<AcDbEntity>(in, t, [&](AcDbEntity *e) {
    return e->transformBy(AcGeMatrix3d::rotation(angle, AcGeVector3d::kZAxis, base));
  });
  return Value();
}
Value callUpdate(Interp &in, const Target &, const Value *, int n) {
  methodArgs(in, n, 0, 0);
  return Value();
}

// Appends a new entity to a block; the entity takes the drawing's defaults
// and the current layer. Deletes it when the block refuses it.
AcDbObjectId append(Interp &in, AcDbObjectId blockId, AcDbEntity *ent) {
  AcDbDatabase *db = blockId.database();
  ent->setDatabaseDefaults(db);
  AcDbObjectId layer = recordId(db->layerTableId(), currentLayerName());
  if (!layer.isNull() && !layer.isErased()) ent->setLayer(layer);
  AcDbObjectId id;
  Acad::ErrorStatus es;
  {
    AcDbObjectPointer<AcDbBlockTableRecord> block(blockId, AcDb::kForWrite);
    es = block.openStatus();
    if (es == Acad::eOk) es = block->appendAcDbEntity(id, ent);
  }
  if (es != Acad::eOk) {
    delete ent;
    statusError(in, es);
  }
  ent->close();
  return id;
}

Value callCopy(Interp &in, const Target &t, const Value *, int n) {
  methodArgs(in, n, 0, 0);
  AcDbEntity *copy = nullptr;
  AcDbObjectId owner;
  withRead<AcDbEntity>(in, t, [&](AcDbEntity *e) {
    copy = AcDbEntity::cast(e->clone());
    owner = e->blockId();
    return Value();
  });
  if (!copy) automationError(in, L"Not applicable");
  AcDbObjectId layer = copy->layerId();
  AcDbObjectId id = append(in, owner, copy);
  // The copy keeps the original's layer, not the current one.
  withWrite<AcDbEntity>(in, resolve(in, objectValue(id)), [&](AcDbEntity *e) { return e->setLayer(layer); });
  return objectValue(id);
}

// --- Methods of blocks that add entities

Value callAddLine(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 2, 2);
  AcGePoint3d p0 = pointArg(in, a[0]), p1 = pointArg(in, a[1]);
  return objectValue(append(in, t.id, new AcDbLine(p0, p1)));
}
Value callAddCircle(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 2, 2);
  AcGePoint3d c = pointArg(in, a[0]);
  double r = realArg(in, a[1]);
  if (!(r > 0) || !std::isfinite(r)) automationError(in, L"Invalid input");
  return objectValue(append(in, t.id, new AcDbCircle(c, AcGeVector3d::kZAxis, r)));
}
Value callAddArc(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 4, 4);
  AcGePoint3d c = pointArg(in, a[0]);
  double r = realArg(in, a[1]), start = realArg(in, a[2]), end = realArg(in, a[3]);
  if (!(r > 0) || !std::isfinite(r)) automationError(in, L"Invalid input");
  return objectValue(append(in, t.id, new AcDbArc(c, r, start, end)));
}
Value callAddLWPolyline(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 1, 1);
  std::vector<double> xy = doublesArg(in, a[0]);
  if (xy.size() < 4 || xy.size() % 2) automationError(in, L"Invalid input");
  auto *p = new AcDbPolyline(unsigned(xy.size() / 2));
  for (size_t i = 0; i + 1 < xy.size(); i += 2) p->addVertexAt(p->numVerts(), AcGePoint2d(xy[i], xy[i + 1]));
  return objectValue(append(in, t.id, p));
}
Value callAddMText(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 3, 3);
  AcGePoint3d at = pointArg(in, a[0]);
  double width = realArg(in, a[1]);
  std::wstring text = stringArg(in, a[2]);
  if (width < 0) automationError(in, L"Invalid input");
  auto *m = new AcDbMText;
  m->setLocation(at);
  m->setWidth(width);
  m->setContents(text.c_str());
  m->setTextHeight(t.db->textsize());
  m->setTextStyle(t.db->textstyle());
  return objectValue(append(in, t.id, m));
}
// Single-line text is not yet a kind the drawing database models, so
// AddText refuses rather than make something else.
Value callAddText(Interp &in, const Target &, const Value *a, int n) {
  methodArgs(in, n, 3, 3);
  stringArg(in, a[0]);
  pointArg(in, a[1]);
  realArg(in, a[2]);
  automationError(in, L"AddText is not available: the drawing database has no single-line text entity yet");
}
// InsertBlock(point, name, xscale, yscale, zscale, rotation): the block must
// be defined in the drawing (no drawing files are inserted).
Value callInsertBlock(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 6, 7);
  AcGePoint3d at = pointArg(in, a[0]);
  std::wstring name = stringArg(in, a[1]);
  double sx = realArg(in, a[2]), sy = realArg(in, a[3]), sz = realArg(in, a[4]), rot = realArg(in, a[5]);
  if (sx == 0 || sy == 0 || sz == 0) automationError(in, L"Invalid input");
  AcDbObjectId block = recordId(t.db->blockTableId(), name);
  if (block.isNull() || block.isErased()) automationError(in, L"Filer error");
  if (auto *b = AcDbBlockTableRecord::cast(objectOf(block)); b && b->isLayout()) automationError(in, L"Invalid input");
  auto *ref = new AcDbBlockReference(at, block);
  ref->setScaleFactors(AcGeScale3d(sx, sy, sz));
  ref->setRotation(rot);
  return objectValue(append(in, t.id, ref));
}

double same(double d) {
  return d;
}
double diameter(double r) {
  return 2 * r;
}
double circumference(double r) {
  return 2 * M_PI * r;
}
double area(double r) {
  return M_PI * r * r;
}

const std::vector<Property> kProperties = {
    {L"Layer", isA<AcDbEntity>, getLayer, putLayer},
    {L"Color", isA<AcDbEntity>, getColor, putColor},
    {L"Linetype", isA<AcDbEntity>, getLinetype, putLinetype},
    {L"LinetypeScale", isA<AcDbEntity>, getLinetypeScale, putLinetypeScale},
    {L"Lineweight", isA<AcDbEntity>, getLineweight, putLineweight},
    {L"Visible", isA<AcDbEntity>, getVisible, putVisible},
    {L"StartPoint", isA<AcDbLine>, getPoint<AcDbLine, &AcDbLine::startPoint>, putPoint<AcDbLine, &AcDbLine::setStartPoint>},
    {L"EndPoint", isA<AcDbLine>, getPoint<AcDbLine, &AcDbLine::endPoint>, putPoint<AcDbLine, &AcDbLine::setEndPoint>},
    {L"StartPoint", isA<AcDbArc>, getCurveStart, nullptr},
    {L"EndPoint", isA<AcDbArc>, getCurveEnd, nullptr},
    {L"Angle", isA<AcDbLine>, getLineAngle, nullptr},
    {L"Length", isLengthCurve, getLength, nullptr},
    {L"Thickness", isA<AcDbLine>, getReal<AcDbLine, &AcDbLine::thickness>, putReal<AcDbLine, &AcDbLine::setThickness>},
    {L"Thickness", isA<AcDbCircle>, getReal<AcDbCircle, &AcDbCircle::thickness>,
     putReal<AcDbCircle, &AcDbCircle::setThickness>},
    {L"Normal", isA<AcDbLine>, getNormal<AcDbLine>, nullptr},
    {L"Normal", isA<AcDbCircle>, getNormal<AcDbCircle>, nullptr},
    {L"Normal", isA<AcDbArc>, getNormal<AcDbArc>, nullptr},
    {L"Normal", isA<AcDbPolyline>, getNormal<AcDbPolyline>, nullptr},
    {L"Center", isA<AcDbCircle>, getPoint<AcDbCircle, &AcDbCircle::center>, putPoint<AcDbCircle, &AcDbCircle::setCenter>},
    {L"Center", isA<AcDbArc>, getPoint<AcDbArc, &AcDbArc::center>, putPoint<AcDbArc, &AcDbArc::setCenter>},
    {L"Radius", isA<AcDbCircle>, [](Interp &in, const Target &t) { return getCircleMeasure(in, t, same); },
     [](Interp &in, const Target &t, const Value &v) { putCircleMeasure(in, t, v, same); }},
    {L"Diameter", isA<AcDbCircle>, [](Interp &in, const Target &t) { return getCircleMeasure(in, t, diameter); },
     [](Interp &in, const Target &t, const Value &v) {
       putCircleMeasure(in, t, v, [](double d) { return d / 2; });
     }},
    {L"Circumference", isA<AcDbCircle>,
     [](Interp &in, const Target &t) { return getCircleMeasure(in, t, circumference); },
     [](Interp &in, const Target &t, const Value &v) {
       putCircleMeasure(in, t, v, [](double c) { return c / (2 * M_PI); });
     }},
    {L"Area", isA<AcDbCircle>, [](Interp &in, const Target &t) { return getCircleMeasure(in, t, area); },
     [](Interp &in, const Target &t, const Value &v) {
       putCircleMeasure(in, t, v, [](double a) { return a >= 0 ? std::sqrt(a / M_PI) : -1.0; });
     }},
    {L"Area", isAreaCurve, getArea, nullptr},
    {L"Radius", isA<AcDbArc>, getReal<AcDbArc, &AcDbArc::radius>, putReal<AcDbArc, &AcDbArc::setRadius>},
    {L"StartAngle", isA<AcDbArc>, getReal<AcDbArc, &AcDbArc::startAngle>, putReal<AcDbArc, &AcDbArc::setStartAngle>},
    {L"EndAngle", isA<AcDbArc>, getReal<AcDbArc, &AcDbArc::endAngle>, putReal<AcDbArc, &AcDbArc::setEndAngle>},
    {L"TotalAngle", isA<AcDbArc>, getReal<AcDbArc, &AcDbArc::totalAngle>, nullptr},
    {L"ArcLength", isA<AcDbArc>, getArcLength, nullptr},
    {L"Coordinates", isA<AcDbPolyline>, getCoordinates, putCoordinates},
    {L"Closed", isPolyline, getClosed, putClosed},
    {L"TextString", isA<AcDbMText>, getTextString, putTextString},
    {L"InsertionPoint", isA<AcDbMText>, getPoint<AcDbMText, &AcDbMText::location>,
     putPoint<AcDbMText, &AcDbMText::setLocation>},
    {L"Height", isA<AcDbMText>, getReal<AcDbMText, &AcDbMText::textHeight>, putReal<AcDbMText, &AcDbMText::setTextHeight>},
    {L"Width", isA<AcDbMText>, getReal<AcDbMText, &AcDbMText::width>, putReal<AcDbMText, &AcDbMText::setWidth>},
    {L"Rotation", isA<AcDbMText>, getReal<AcDbMText, &AcDbMText::rotation>, putReal<AcDbMText, &AcDbMText::setRotation>},
    {L"AttachmentPoint", isA<AcDbMText>, getAttachment, putAttachment},
    {L"StyleName", isA<AcDbMText>, getStyleName, putStyleName},
    {L"InsertionPoint", isA<AcDbBlockReference>, getPoint<AcDbBlockReference, &AcDbBlockReference::position>,
     putPoint<AcDbBlockReference, &AcDbBlockReference::setPosition>},
    {L"Rotation", isA<AcDbBlockReference>, getReal<AcDbBlockReference, &AcDbBlockReference::rotation>,
     putReal<AcDbBlockReference, &AcDbBlockReference::setRotation>},
    {L"Name", isA<AcDbBlockReference>, getBlockName, nullptr},
    {L"EffectiveName", isA<AcDbBlockReference>, getBlockName, nullptr},
    {L"XScaleFactor", isA<AcDbBlockReference>, getScale<0>, putScale<0>},
    {L"YScaleFactor", isA<AcDbBlockReference>, getScale<1>, putScale<1>},
    {L"ZScaleFactor", isA<AcDbBlockReference>, getScale<2>, putScale<2>},
};

const std::vector<Method> kMethods = {
    {L"Delete", isA<AcDbEntity>, callDelete},
    {L"Move", isA<AcDbEntity>, callMove},
    {L"Copy", isA<AcDbEntity>, callCopy},
    {L"Rotate", isA<AcDbEntity>, callRotate},
    {L"Update", isA<AcDbEntity>, callUpdate},
    {L"AddLine", isA<AcDbBlockTableRecord>, callAddLine},
    {L"AddCircle", isA<AcDbBlockTableRecord>, callAddCircle},
    {L"AddArc", isA<AcDbBlockTableRecord>, callAddArc},
    {L"AddLWPolyline", isA<AcDbBlockTableRecord>, callAddLWPolyline},
    {L"AddText", isA<AcDbBlockTableRecord>, callAddText},
    {L"AddMText", isA<AcDbBlockTableRecord>, callAddMText},
    {L"InsertBlock", isA<AcDbBlockTableRecord>, callInsertBlock},
};

}  // namespace

const std::vector<Property> &entityProperties() {
  return kProperties;
}
const std::vector<Method> &entityMethods() {
  return kMethods;
}

}  // namespace vantry::host::activex
