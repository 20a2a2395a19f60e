// The URL parser and Url beside libcurl's URL API: resolving a relative reference against a
// base, and parsing a URL and reading all its parts.
#include <zq/Net/HTParse.h>
#include <zq/Net/Url.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

#ifdef ZQ_BENCH_HAVE_CURL
#include <curl/curl.h>
#endif

namespace {

const char k_base[] = "http://www.example.com:8080/docs/guide/chapter/page.html?lang=en#top";
const char k_reference[] = "../images/./figure.png?size=large#caption";
const char k_url[] = "https://www.example.com:8443/path/to/resource.html?query=value&x=1#section";

void HTParse_ResolveReference(benchmark::State& state) {
  for (auto _ : state) {
    char* resolved = zq::HTParse(k_reference, k_base, zq::HT_ALL);
    benchmark::DoNotOptimize(resolved);
    std::free(resolved);
  }
}
BENCHMARK(HTParse_ResolveReference);

void Url_ParseAndReadParts(benchmark::State& state) {
  for (auto _ : state) {
    const zq::Url url(k_url);
    benchmark::DoNotOptimize(url.scheme());
    benchmark::DoNotOptimize(url.host());
    benchmark::DoNotOptimize(url.port());
    benchmark::DoNotOptimize(url.path());
    benchmark::DoNotOptimize(url.query());
    benchmark::DoNotOptimize(url.fragment());
  }
}
BENCHMARK(Url_ParseAndReadParts);

#ifdef ZQ_BENCH_HAVE_CURL

// One handle for the whole run, as a careful curl user would keep it.
void Curl_ResolveReference(benchmark::State& state) {
  CURLU* handle = curl_url();
  for (auto _ : state) {
    char* resolved = nullptr;
    if (curl_url_set(handle, CURLUPART_URL, k_base, 0) != CURLUE_OK ||
        curl_url_set(handle, CURLUPART_URL, k_reference, 0) != CURLUE_OK ||
        curl_url_get(handle, CURLUPART_URL, &resolved, 0) != CURLUE_OK) {
      state.SkipWithError("curl could not resolve the reference");
      break;
    }
    benchmark::DoNotOptimize(resolved);
    curl_free(resolved);
  }
  curl_url_cleanup(handle);
}
BENCHMARK(Curl_ResolveReference);

void Curl_ParseAndReadParts(benchmark::State& state) {
  const CURLUPart parts[] = {CURLUPART_SCHEME, CURLUPART_HOST,  CURLUPART_PORT,
                             CURLUPART_PATH,   CURLUPART_QUERY, CURLUPART_FRAGMENT};
  CURLU* handle = curl_url();
  for (auto _ : state) {
    if (curl_url_set(handle, CURLUPART_URL, k_url, 0) != CURLUE_OK) {
      state.SkipWithError("curl could not parse the URL");
      break;
    }
    for (CURLUPart part : parts) {
      char* text = nullptr;
      curl_url_get(handle, part, &text, 0);
      benchmark::DoNotOptimize(text);
      curl_free(text);
    }
  }
  curl_url_cleanup(handle);
}
BENCHMARK(Curl_ParseAndReadParts);

#endif

}  // namespace
