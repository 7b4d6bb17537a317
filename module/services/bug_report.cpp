// Error reports: ol_ol-submitBug, mailed through libcurl's SMTP.
//
// A report holds the person's description, the drawing's name, the host's
// release, the connected database's path and engine version, and the end of
// the command-line log (LOGFILENAME, which the host keeps while LOGFILEON is
// 1). It is mailed to the address in the user option "MailTo" through the
// server in "MailServer" ("host", "host:port", "smtp://host:port" or
// "smtps://host:port"), from "MailFrom" (by default the login name at this
// machine), with "MailUser" and "MailPassword" when the server asks for them.
// On a plain smtp server the mail goes over TLS when the server offers it,
// with its certificate checked. With no server or recipient set, or when
// sending fails, the report is saved as a file instead (in the user option
// "BugReportFolder", else the temporary folder) and the command line says
// where.
#include <curl/curl.h>
#include <sodium.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "common/files.h"
#include "common/text.h"
#include "database/context.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "services/services.h"
#include "services/transfer.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;
using services::tell;

constexpr size_t kLogTail = 64 * 1024;

std::wstring systemString(const wchar_t *name) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM || rb.restype != RTSTR) return L"";
  std::wstring value = rb.resval.rstring ? rb.resval.rstring : L"";
  acutDelString(rb.resval.rstring);
  return value;
}

std::string utf8(const std::wstring &s) {
  return text::toUtf8(s);
}

// The end of the command-line log, from a line start.
std::string commandLog() {
  std::wstring name = systemString(L"LOGFILENAME");
  std::ifstream in(text::nativePath(name), std::ios::binary);
  if (name.empty() || !in) return "(no command-line log: set LOGFILEON to 1 to keep one)\n";
  std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (all.size() > kLogTail) {
    all.erase(0, all.size() - kLogTail);
    size_t nl = all.find('\n');
    if (nl != std::string::npos) all.erase(0, nl + 1);
  }
  return all;
}

std::string reportBody(const std::wstring &description) {
  std::ostringstream out;
  std::wstring drawing = systemString(L"DWGPREFIX") + systemString(L"DWGNAME");
  out << "Description:\n" << utf8(description) << "\n\n";
  out << "Module: Vantry2025x64\n";
  out << "Host release: " << utf8(systemString(L"ACADVER")) << "\n";
  out << "Drawing: " << (drawing.empty() ? "(none)" : utf8(drawing)) << "\n";
  database::EngineConnection conn = database::currentConnection();
  if (conn && conn->IsConnected()) {
    int32_t v = conn->GetVersion();
    out << "Database: " << utf8(database::context().path) << "\n";
    out << "Database engine: SQLite " << v / 100 << "." << v % 100 << "\n";
  } else {
    out << "Database: (none connected)\n";
  }
  out << "\nCommand line:\n" << commandLog();
  // Mail wants CRLF line ends and lines of at most 998 bytes: longer ones
  // (a long command-line line) are broken.
  std::string body, raw = out.str();
  size_t lineLength = 0;
  for (char c : raw) {
    if (c == '\n') {
      if (body.empty() || body.back() != '\r') body += '\r';
      lineLength = 0;
    } else if (c != '\r' && ++lineLength > 990 && (static_cast<unsigned char>(c) & 0xC0) != 0x80) {
      body += "\r\n";
      lineLength = 1;
    }
    body += c;
  }
  return body;
}

std::string mailDate() {
  char buf[64];
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  std::strftime(buf, sizeof buf, "%a, %d %b %Y %H:%M:%S %z", &tm);
  return buf;
}

std::string message(const std::string &from, const std::string &to, const std::wstring &description) {
  std::wstring first = description.substr(0, description.find(L'\n'));
  if (first.size() > 60) first = first.substr(0, 60) + L"...";
  std::string subject = "Vantry error report" + (first.empty() ? "" : ": " + utf8(first));
  // A subject beyond ASCII travels as an encoded word.
  if (std::any_of(subject.begin(), subject.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7e || c < 0x20; })) {
    std::string b64(sodium_base64_ENCODED_LEN(subject.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(b64.data(), b64.size(), reinterpret_cast<const unsigned char *>(subject.data()), subject.size(),
                      sodium_base64_VARIANT_ORIGINAL);
    subject = "=?UTF-8?B?" + std::string(b64.c_str()) + "?=";
  }
  std::string m;
  m += "Date: " + mailDate() + "\r\n";
  m += "From: <" + from + ">\r\n";
  m += "To: <" + to + ">\r\n";
  m += "Subject: " + subject + "\r\n";
  m += "MIME-Version: 1.0\r\n";
  m += "Content-Type: text/plain; charset=UTF-8\r\n";
  m += "Content-Transfer-Encoding: 8bit\r\n\r\n";
  return m + reportBody(description);
}

std::string serverUrl(std::wstring server) {
  std::wstring lower = text::downcase(server);
  if (lower.rfind(L"smtp://", 0) == 0 || lower.rfind(L"smtps://", 0) == 0) return utf8(server);
  return "smtp://" + utf8(server);
}

struct Upload {
  const std::string *data;
  size_t at = 0;
};

size_t readPayload(char *buffer, size_t size, size_t count, void *user) {
  auto *u = static_cast<Upload *>(user);
  size_t n = std::min(size * count, u->data->size() - u->at);
  std::copy_n(u->data->data() + u->at, n, buffer);
  u->at += n;
  return n;
}

// Sends the mail; empty on success, else why not.
std::wstring send(const std::string &url, const std::string &from, const std::string &to, const std::string &mail) {
  if (!services::startCurl()) return L"the transfer library could not be started";
  CURL *curl = curl_easy_init();
  if (!curl) return L"the transfer library could not be started";
  char errorText[CURL_ERROR_SIZE] = "";
  curl_slist *rcpt = curl_slist_append(nullptr, ("<" + to + ">").c_str());
  Upload upload{&mail};
  std::string mailFrom = "<" + from + ">";
  std::string user = utf8(services::userOption(L"MailUser"));
  std::string password = utf8(services::userOption(L"MailPassword"));
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
  curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_TRY));
  curl_easy_setopt(curl, CURLOPT_MAIL_FROM, mailFrom.c_str());
  curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, rcpt);
  curl_easy_setopt(curl, CURLOPT_READFUNCTION, readPayload);
  curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
  curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 120L);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
  if (!user.empty()) {
    curl_easy_setopt(curl, CURLOPT_USERNAME, user.c_str());
    curl_easy_setopt(curl, CURLOPT_PASSWORD, password.c_str());
  }
  services::applyTransferLimits(curl);
  CURLcode rc = curl_easy_perform(curl);
  curl_slist_free_all(rcpt);
  curl_easy_cleanup(curl);
  if (rc == CURLE_OK) return L"";
  return text::fromUtf8(*errorText ? errorText : curl_easy_strerror(rc));
}

// Saves the report beside the others; the file's path, or empty.
std::wstring save(const std::string &mail) {
  std::wstring folder = services::userOption(L"BugReportFolder");
  std::string dir = folder.empty() ? services::tempFolder() : text::nativePath(folder);
  char stamp[32];
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &tm);
  std::string path;
  for (int n = 1; n < 1000; ++n) {
    path = dir + "/VantryErrorReport-" + stamp + (n > 1 ? "-" + std::to_string(n) : "") + ".txt";
    if (!std::filesystem::exists(path)) break;
  }
  bool ok = files::replaceFile(path, [&](const std::string &temp) {
    std::ofstream out(temp, std::ios::binary);
    out << mail;
    out.flush();
    return bool(out);
  });
  return ok ? text::fromUtf8(path) : L"";
}

}  // namespace

// (ol_ol-submitBug description): T when the report was mailed; the path of
// the saved report when there is no mail server or recipient, or sending
// failed; nil when it could be neither sent nor saved.
int ol_ol_submitBug() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring description;
  if (!frame::readString(cur, description)) return 2;

  std::wstring server = services::userOption(L"MailServer");
  std::wstring to = services::userOption(L"MailTo");
  std::wstring from = services::userOption(L"MailFrom");
  if (from.empty()) {
    char host[256] = "localhost";
    ::gethostname(host, sizeof host - 1);
    std::wstring login = systemString(L"LOGINNAME");
    from = (login.empty() ? L"vantry" : login) + L"@" + text::fromUtf8(host);
  }
  std::string mail = message(utf8(from), utf8(to), description);

  std::wstring why;
  if (server.empty())
    why = L"No mail server is set in the user options (MailServer)";
  else if (to.empty())
    why = L"No address to send it to is set in the user options (MailTo)";
  else if ((why = send(serverUrl(server), utf8(from), utf8(to), mail)).empty()) {
    tell(L"The error report was sent to " + to + L".");
    acedRetT();
    return 0;
  } else {
    why = L"The error report could not be sent (" + why + L")";
  }
  std::wstring path = save(mail);
  if (path.empty()) {
    tell(why + L"; it could not be saved either.");
    return 0;
  }
  tell(why + L"; the report was saved as " + path);
  acedRetStr(path.c_str());
  return 0;
}

}  // namespace vantry::lispfn
