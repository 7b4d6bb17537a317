// Downloads: DownloadFile, through libcurl.
//
// Only http and https, for the address and for every redirect; certificates
// and host names are checked; at most kMaxRedirects redirects; a body larger
// than the download limit (user option "DownloadLimitMB") is refused whether
// or not the server announced its size. The body is written beside the target
// and renamed over it only when the whole of it arrived, so a failed download
// leaves no file and loses nothing that was there. A progress bar is drawn on
// the terminal (standard error, only when it is one); the command line shows
// only the outcome. The person's Esc stops a download at its next progress
// report.
#include <curl/curl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/files.h"
#include "common/text.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "services/services.h"
#include "services/transfer.h"

namespace vantry::services {

bool startCurl() {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

void applyTransferLimits(CURL *curl) {
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 30L);
  // A server that stops sending is given up after a minute of silence.
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 60L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
}

}  // namespace vantry::services

namespace vantry::lispfn {
namespace {

using frame::ArgList;
using services::tell;

constexpr long kMaxRedirects = 10;

struct Transfer {
  std::FILE *file = nullptr;
  uint64_t received = 0, limit = 0;
  bool tooLarge = false, cancelled = false, bar = false;
  int lastShown = -1;
};

size_t writeBody(char *data, size_t size, size_t count, void *user) {
  auto *t = static_cast<Transfer *>(user);
  size_t n = size * count;
  if ((t->received += n) > t->limit) {
    t->tooLarge = true;
    return 0;  // ends the transfer with a write error
  }
  return std::fwrite(data, 1, n, t->file);
}

int progress(void *user, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
  auto *t = static_cast<Transfer *>(user);
  if (acedUsrBrk()) {
    t->cancelled = true;
    return 1;
  }
  if (t->bar && total > 0) {
    int percent = static_cast<int>(now * 100 / total);
    if (percent != t->lastShown) {
      // The bar takes a line of its own: the command line may be mid-line.
      if (t->lastShown < 0) std::fputs("\n", stderr);
      t->lastShown = percent;
      std::string bar(percent / 2, '#');
      bar.resize(50, '.');
      std::fprintf(stderr, "\r[%s] %3d%%", bar.c_str(), percent);
      std::fflush(stderr);
    }
  }
  return 0;
}

bool schemeAllowed(const std::wstring &url) {
  std::wstring lower = text::downcase(url.substr(0, 8));
  return lower.rfind(L"http://", 0) == 0 || lower.rfind(L"https://", 0) == 0;
}

}  // namespace

// (DownloadFile url target): T when the whole body of url was written to
// target; nil with a message otherwise (and no file left at target, or the
// file that was there, untouched).
int DownloadFile() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring url, target;
  if (!frame::readString(cur, url)) return 2;
  if (!cur) return 1;
  if (!frame::readString(cur, target)) return 2;
  if (url.empty() || target.empty()) return 3;
  if (!schemeAllowed(url)) {
    tell(L"DownloadFile: only http and https addresses are downloaded, not " + url);
    return 0;
  }
  if (!services::startCurl()) {
    tell(L"DownloadFile: the transfer library could not be started.");
    return 0;
  }

  Transfer t;
  t.limit = services::downloadLimit();
  t.bar = ::isatty(STDERR_FILENO) == 1;
  char errorText[CURL_ERROR_SIZE] = "";
  CURLcode result = CURLE_OK;
  long status = 0;
  std::string replaceError;
  std::string narrowUrl = text::toUtf8(url);
  bool written = files::replaceFile(
      text::nativePath(target),
      [&](const std::string &temp) {
        t.file = std::fopen(temp.c_str(), "wb");
        if (!t.file) {
          replaceError = std::strerror(errno);
          return false;
        }
        CURL *curl = curl_easy_init();
        if (!curl) {
          std::fclose(t.file);
          result = CURLE_FAILED_INIT;
          return false;
        }
        curl_easy_setopt(curl, CURLOPT_URL, narrowUrl.c_str());
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
        curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(t.limit));
        curl_easy_setopt(curl, CURLOPT_USERAGENT, "Vantry");
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &t);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &t);
        services::applyTransferLimits(curl);
        result = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_cleanup(curl);
        bool closed = std::fclose(t.file) == 0;
        if (t.bar && t.lastShown >= 0) std::fputs("\n", stderr);
        return result == CURLE_OK && closed;
      },
      &replaceError);
  if (written) {
    acedRetT();
    return 0;
  }
  std::wstring why;
  if (t.tooLarge || result == CURLE_FILESIZE_EXCEEDED)
    why = L"it is larger than the limit of " + std::to_wstring(t.limit >> 20) + L" MB";
  else if (t.cancelled)
    why = L"cancelled";
  else if (result == CURLE_OK)
    why = text::fromUtf8(replaceError);
  else if (*errorText)
    why = text::fromUtf8(errorText);
  else
    why = text::fromUtf8(curl_easy_strerror(result));
  tell(L"DownloadFile: " + url + L" was not downloaded: " + why + L".");
  return 0;
}

}  // namespace vantry::lispfn
