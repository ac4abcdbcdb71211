#include "tests/bench/Curl.h"

#include "tests/bench/Measure.h"

namespace {

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

}  // namespace

Curl::Curl(const std::string& url, const std::string& authority, const std::string& token)
    : _handle(curl_easy_init()) {
  for (const std::string& header :
       {std::string("Accept: application/json"), std::string("Content-Type: application/json"),
        "Authorization: Bearer " + token}) {
    _headers = curl_slist_append(_headers, header.c_str());
  }
  curl_easy_setopt(_handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(_handle, CURLOPT_CAINFO, authority.c_str());
  curl_easy_setopt(_handle, CURLOPT_HTTPHEADER, _headers);
  curl_easy_setopt(_handle, CURLOPT_PROXY, "");
  curl_easy_setopt(_handle, CURLOPT_ACCEPT_ENCODING, "");  // as the daemon does
  const curl_write_callback append = Append;
  curl_easy_setopt(_handle, CURLOPT_WRITEFUNCTION, append);
}

Curl::~Curl() {
  curl_easy_cleanup(_handle);
  curl_slist_free_all(_headers);
}

std::string Curl::post(const std::string& body) {
  curl_easy_setopt(_handle, CURLOPT_COPYPOSTFIELDS, body.c_str());
  return perform();
}

std::string Curl::get(const std::string& url) {
  curl_easy_setopt(_handle, CURLOPT_URL, url.c_str());
  return perform();
}

std::string Curl::perform() {
  std::string answer;
  curl_easy_setopt(_handle, CURLOPT_WRITEDATA, &answer);
  const CURLcode result = curl_easy_perform(_handle);
  if (result != CURLE_OK) Fail(std::string("libcurl: ") + curl_easy_strerror(result));
  long opened = 0;
  curl_easy_getinfo(_handle, CURLINFO_NUM_CONNECTS, &opened);
  _connections += opened;
  return answer;
}
