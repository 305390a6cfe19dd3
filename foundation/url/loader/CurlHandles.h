#pragma once

#include <curl/curl.h>

#include <memory>

#include "foundation/base/Release.h"

namespace foundation {

/// Owners of curl's handles.
using EasyHandle = std::unique_ptr<CURL, Release<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, Release<curl_multi_cleanup>>;
using ShareHandle = std::unique_ptr<CURLSH, Release<curl_share_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;
using UrlHandle = std::unique_ptr<CURLU, Release<curl_url_cleanup>>;
/// A text that curl has allocated.
using CurlText = std::unique_ptr<char, Release<curl_free>>;

}  // namespace foundation
