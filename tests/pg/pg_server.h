// The tests' and benchmarks' PostgreSQL server (scripts/pg-test-server).
// Under ctest one server serves every test process (the pg_server fixture
// writes its URL to VANTRY_PG_DIR/url); run directly, the first use starts
// one for the process and stops it at exit. Each user takes a fresh schema.
#pragma once

#include <libpq-fe.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace vantry::engine::testing {

class PgServer {
 public:
  static PgServer &shared() {
    static PgServer server;
    return server;
  }
  bool running() const { return !url_.empty(); }
  // Why the server is not running, for the skip message.
  const std::string &why() const { return why_; }
  // The URL of a new, empty schema on the server.
  std::string freshSchema(const std::string &stem) {
    std::string name = stem + "_" + std::to_string(getpid()) + "_" + std::to_string(++count_);
    if (!admin("DROP SCHEMA IF EXISTS " + name + " CASCADE; CREATE SCHEMA " + name)) return "";
    return url_ + "?schema=" + name;
  }
  // Runs SQL as the server's superuser; false on failure.
  bool admin(const std::string &sql) {
    PGconn *c = PQconnectdb(url_.c_str());
    bool ok = false;
    if (PQstatus(c) == CONNECTION_OK) {
      PGresult *r = PQexec(c, sql.c_str());
      ok = PQresultStatus(r) == PGRES_COMMAND_OK || PQresultStatus(r) == PGRES_TUPLES_OK;
      PQclear(r);
    }
    PQfinish(c);
    return ok;
  }
  ~PgServer() {
    if (!ownDir_.empty()) std::system((script() + " stop " + ownDir_ + " >/dev/null 2>&1").c_str());
  }

 private:
  PgServer() {
    const char *shared = std::getenv("VANTRY_PG_DIR");
    if (shared && read(shared)) return;
    ownDir_ = std::string(VANTRY_BIN_DIR) + "/../tmp/pg-" + std::to_string(getpid());
    std::system((script() + " start " + ownDir_ + " >/dev/null 2>&1").c_str());
    read(ownDir_);
  }
  bool read(const std::string &dir) {
    std::ifstream url(dir + "/url"), why(dir + "/why");
    std::getline(url, url_);
    if (!url_.empty()) return true;
    std::getline(why, why_);
    if (why_.empty()) why_ = "the test server's folder " + dir + " holds neither a URL nor a reason";
    return false;
  }
  static std::string script() { return std::string(VANTRY_SOURCE_DIR) + "/scripts/pg-test-server"; }

  std::string url_, why_, ownDir_;
  int count_ = 0;
};

}  // namespace vantry::engine::testing
