// The engine that createEngine() hands out: SQLite until Open is given a
// PostgreSQL server (a URL, or a ".pgconnect" file naming one), then the
// server's engine. Every call goes to whichever is open, so the module sees
// one engine object whatever the database lives in.
#include "../sqlite_internal.h"
#include "pg_engine.h"

namespace vantry::engine {

namespace {

class RoutingEngine : public Engine {
 public:
  RoutingEngine() : sqlite_(std::make_unique<sqlite::SqliteEngine>()), active_(sqlite_.get()) {}

  std::string Open(const std::string &path, int32_t options, bool readOnly) override {
    std::string url;
    if (pg::serverUrlOf(path, &url)) {
      sqlite_->Close();
      if (!pg_) pg_ = std::make_unique<pg::PgEngine>();
      active_ = pg_.get();
      std::string status = pg_->Open(url, options, readOnly);
      return status;
    }
    if (pg_) pg_->Close();
    active_ = sqlite_.get();
    return sqlite_->Open(path, options, readOnly);
  }
  bool IsConnected() override { return active_->IsConnected(); }
  bool IsAlive() override { return active_->IsAlive(); }
  std::string GetName() override { return active_->GetName(); }
  void Close() override { active_->Close(); }
  LastError GetLastError() override { return active_->GetLastError(); }
  int16_t IsUpdatable() override { return active_->IsUpdatable(); }
  bool HasError() override { return active_->HasError(); }
  // Compacting works on files, without an open database.
  bool CompactDatabase(const std::string &s, const std::string &d) override {
    active_ = sqlite_.get();
    return sqlite_->CompactDatabase(s, d);
  }
  int32_t GetVersion() override { return active_->GetVersion(); }
  bool OpenTable(const std::string &t, const std::string &i) override { return active_->OpenTable(t, i); }
  bool MoveFirst(Record *out) override { return active_->MoveFirst(out); }
  bool Skip(int32_t n, Record *out) override { return active_->Skip(n, out); }
  bool GetRecord(Record *out) override { return active_->GetRecord(out); }
  bool MoveLast(Record *out) override { return active_->MoveLast(out); }
  bool CloseTable() override { return active_->CloseTable(); }
  bool CloseAllTables() override { return active_->CloseAllTables(); }
  bool RecordCount(int32_t *n) override { return active_->RecordCount(n); }
  std::string CurrentIndex() override { return active_->CurrentIndex(); }
  std::string CurrentTable() override { return active_->CurrentTable(); }
  bool SeekValue(const Value &k, Record *out) override { return active_->SeekValue(k, out); }
  bool SeekPoint2(double x, double y, Record *out) override { return active_->SeekPoint2(x, y, out); }
  bool SeekPoint3(double x, double y, double z, Record *out) override { return active_->SeekPoint3(x, y, z, out); }
  bool SeekValues(const std::array<Value, 10> &k, Record *out) override { return active_->SeekValues(k, out); }
  bool AppendRecord(const Record &r, bool keep, Record *stored) override {
    return active_->AppendRecord(r, keep, stored);
  }
  bool DeleteRecord() override { return active_->DeleteRecord(); }
  bool ReplaceRecord(const Record &r, Record *stored) override { return active_->ReplaceRecord(r, stored); }
  bool ExecuteSql(const std::string &sql, ValueArray *result) override { return active_->ExecuteSql(sql, result); }
  bool ExecuteSqlInto(const std::string &sql, AnswerSink *sink) override {
    return active_->ExecuteSqlInto(sql, sink);
  }
  bool RunQuery(const std::string &name, const ValueArray &params, ValueArray *result) override {
    return active_->RunQuery(name, params, result);
  }
  bool CreateQuery(const std::string &name, const std::string &sql) override {
    return active_->CreateQuery(name, sql);
  }
  bool ExecuteCommand(const std::string &sql, int32_t *n) override { return active_->ExecuteCommand(sql, n); }
  Schema *schema() override { return active_->schema(); }

 private:
  std::unique_ptr<sqlite::SqliteEngine> sqlite_;
  std::unique_ptr<pg::PgEngine> pg_;
  Engine *active_;
};

}  // namespace

EngineConnection makeRoutingEngine() {
  return std::make_shared<RoutingEngine>();
}

}  // namespace vantry::engine
