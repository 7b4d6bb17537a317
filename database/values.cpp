#include "database/values.h"

#include "frame/text.h"
#include "frame/value_list.h"

namespace vantry::database {

bool toEngineValue(const resbuf *rb, engine::Value &out) {
  if (!rb) return false;
  switch (rb->restype) {
    case RTREAL: out = engine::Value::real(rb->resval.rreal); return true;
    case RTSHORT: out = engine::Value::integer(rb->resval.rint); return true;
    case RTLONG: out = engine::Value::integer(rb->resval.rlong); return true;
    case RTSTR: out = engine::Value::text(frame::toUtf8(rb->resval.rstring ? rb->resval.rstring : L"")); return true;
    case RTT: out = engine::Value::boolean(true); return true;
    case RTNIL: out = engine::Value(); return true;
    default: return false;
  }
}

namespace {

resbuf *lispNode(const engine::Value &v) {
  switch (v.type()) {
    case engine::ValueType::kEmpty:
    case engine::ValueType::kNull: return acutBuildList(RTNIL, 0);
    case engine::ValueType::kInteger: {
      int32_t i = v.asInteger();
      return i >= -32768 && i <= 32767 ? acutBuildList(RTSHORT, int(i), 0) : acutBuildList(RTLONG, i, 0);
    }
    case engine::ValueType::kReal: return acutBuildList(RTREAL, v.asReal(), 0);
    case engine::ValueType::kText:
    case engine::ValueType::kDate: return acutBuildList(RTSTR, frame::fromUtf8(v.asText()).c_str(), 0);
    case engine::ValueType::kBoolean: return acutBuildList(v.asBoolean() ? RTT : RTNIL, 0);
  }
  return acutBuildList(RTNIL, 0);
}

void append(resbuf *&tail, resbuf *chain) {
  tail->rbnext = chain;
  while (tail->rbnext) tail = tail->rbnext;
}

void appendRecordList(resbuf *&tail, const engine::Record &record) {
  append(tail, acutBuildList(RTLB, 0));
  for (const engine::Field &f : record) {
    append(tail, acutBuildList(RTLB, RTSTR, frame::fromUtf8(f.name).c_str(), RTDOTE, 0));
    appendLispValue(tail, f.value);
    append(tail, acutBuildList(RTLE, 0));
  }
  append(tail, acutBuildList(RTLE, 0));
}

}  // namespace

void appendLispValue(resbuf *&tail, const engine::Value &v) { append(tail, lispNode(v)); }

void returnRecord(const engine::Record &record) {
  if (record.empty()) {
    acedRetNil();
    return;
  }
  resbuf *head = acutBuildList(RTNIL, 0), *tail = head;  // a placeholder head, dropped below
  appendRecordList(tail, record);
  acedRetList(head->rbnext);
  acutRelRb(head);
}

void returnValueArray(const engine::ValueArray &values) {
  if (values.empty()) {
    acedRetNil();
    return;
  }
  resbuf *head, *tail;
  frame::startResultList(head, tail);
  size_t i = 0;
  auto isMarker = [&](size_t k) {
    return values[k].type() == engine::ValueType::kText && values[k].asText() == engine::kNewRecordMarker;
  };
  for (; i < values.size() && !isMarker(i); ++i) appendLispValue(tail, values[i]);
  while (i < values.size()) {
    engine::Record record;
    for (++i; i < values.size() && !isMarker(i); i += 2) {
      engine::Field f;
      f.name = values[i].type() == engine::ValueType::kText ? values[i].asText() : std::string();
      if (i + 1 < values.size() && !isMarker(i + 1)) f.value = values[i + 1];
      record.push_back(std::move(f));
      if (i + 1 >= values.size() || isMarker(i + 1)) {
        ++i;
        break;
      }
    }
    appendRecordList(tail, record);
  }
  frame::returnResultList(head, tail);
}

bool readRecord(resbuf *cur, engine::Record &out) {
  out.clear();
  for (;;) {
    while (cur && (cur->restype == RTLB || cur->restype == RTLE || cur->restype == RTDOTE)) cur = cur->rbnext;
    if (!cur) break;
    std::wstring name;
    if (!frame::readString(cur, name)) return false;
    if (cur && cur->restype == RTDOTE) cur = cur->rbnext;
    if (!cur) return false;
    engine::Field f;
    f.name = frame::toUtf8(name);
    if (cur->restype == RTLE) {
      f.value = engine::Value::null();
    } else {
      if (!toEngineValue(cur, f.value)) return false;
      cur = cur->rbnext;
    }
    out.push_back(std::move(f));
  }
  return !out.empty();
}

bool flattenArguments(const resbuf *cur, engine::ValueArray &out) {
  engine::ValueArray values;
  bool ok = true;
  for (; cur; cur = cur->rbnext) {
    switch (cur->restype) {
      case RTLB: values.push_back(engine::Value::text(engine::kMarkerListBegin)); break;
      case RTLE: values.push_back(engine::Value::text(engine::kMarkerListEnd)); break;
      case RTDOTE: values.push_back(engine::Value::text(engine::kMarkerDot)); break;
      default: {
        engine::Value v;
        if (toEngineValue(cur, v))
          values.push_back(std::move(v));
        else
          ok = false;  // the walk still runs to the end
      }
    }
  }
  if (!ok) return false;
  out = std::move(values);
  return true;
}

void returnCount(int32_t n) { frame::returnInteger(n); }

}  // namespace vantry::database
