#pragma once

#include <curl/curl.h>

#include <memory>

namespace foundation {

/// Owners of curl's handles.
template <auto Release>
struct CurlRelease {
  template <typename Handle>
  void operator()(Handle* handle) const {
    Release(handle);
  }
};

using EasyHandle = std::unique_ptr<CURL, CurlRelease<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, CurlRelease<curl_multi_cleanup>>;
using ShareHandle = std::unique_ptr<CURLSH, CurlRelease<curl_share_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, CurlRelease<curl_slist_free_all>>;
using UrlHandle = std::unique_ptr<CURLU, CurlRelease<curl_url_cleanup>>;

}  // namespace foundation
