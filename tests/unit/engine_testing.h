// Shared by the engine's tests: a temporary directory, database files built
// with raw SQLite, and short forms of records for comparisons.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/engine.h"

namespace vantry::engine::testing {

// A monotonic clock that stands still until the test moves it, installed for
// the object's life, so that the engine's time windows are tested without
// waiting them out. The wall clock stays the system's: it must agree with
// the kernel's file time stamps.
class ManualClock : public EnvWrapper {
 public:
  ManualClock() : EnvWrapper(&env()), now_(env().monotonicNanos()) { setEnv(this); }
  ~ManualClock() override { setEnv(target()); }
  void advance(std::chrono::nanoseconds by) { now_ += by.count(); }
  int64_t monotonicNanos() override { return now_; }

 private:
  int64_t now_;
};

// Fails engine creation for the object's life.
class FailingCreation : public EnvWrapper {
 public:
  FailingCreation() : EnvWrapper(&env()) { setEnv(this); }
  ~FailingCreation() override { setEnv(target()); }
  bool creationFails() override { return true; }
};

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-engine-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// Runs `script` on `path` with raw SQLite (creating the file); fails the test on error.
inline void rawSql(const std::string &path, const std::string &script) {
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char *err = nullptr;
  int rc = sqlite3_exec(db, script.c_str(), nullptr, nullptr, &err);
  std::string msg = err ? err : "";
  sqlite3_free(err);
  sqlite3_close(db);
  ASSERT_EQ(rc, SQLITE_OK) << msg;
}

// The first column of the first row of `query` as text, read with raw SQLite ("" for none).
inline std::string rawScalar(const std::string &path, const std::string &query) {
  sqlite3 *db = nullptr;
  std::string out = "<error>";
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, query.c_str(), -1, &st, nullptr) == SQLITE_OK) {
      int rc = sqlite3_step(st);
      out = rc == SQLITE_ROW ? (sqlite3_column_text(st, 0) ? (const char *)sqlite3_column_text(st, 0) : "")
                             : (rc == SQLITE_DONE ? "" : "<error>");
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return out;
}

// "name=value name=value" with Value::debugString values.
inline std::string show(const Record &r) {
  std::string out;
  for (const Field &f : r) out += (out.empty() ? "" : " ") + f.name + "=" + f.value.debugString();
  return out;
}

// The named field's value, shown; "<missing>" when the record has no such field.
inline std::string field(const Record &r, const std::string &name) {
  for (const Field &f : r)
    if (f.name == name) return f.value.debugString();
  return "<missing>";
}

// A statement result as text: plain values, then each row as "name=value ...", rows
// separated by " | ".
inline std::string show(const ValueArray &a) {
  std::string out;
  bool inRow = false, nameNext = true;
  for (const Value &v : a) {
    if (v.type() == ValueType::kText && v.asText() == kNewRecordMarker) {
      out += inRow ? " | " : (out.empty() ? "" : " ");
      inRow = true;
      nameNext = true;
      continue;
    }
    if (!inRow) {
      out += (out.empty() ? "" : " ") + v.debugString();
    } else if (nameNext) {
      out += (out.empty() || out.back() == ' ' ? "" : " ") + v.asText() + "=";
      nameNext = false;
    } else {
      out += v.debugString();
      nameNext = true;
    }
  }
  return out;
}

inline void overwrite(const std::string &path, long offset, const std::string &bytes) {
  std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
  f.seekp(offset);
  f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace vantry::engine::testing
