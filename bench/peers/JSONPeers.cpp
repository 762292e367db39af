#include "bench/peers/JSONPeers.h"

#ifdef PAPERLOOM_BENCH_RAPIDJSON
#include <rapidjson/document.h>
#endif
#ifdef PAPERLOOM_BENCH_BOOST_JSON
#include <boost/json.hpp>
#endif

namespace paperloom::bench {
namespace {

#ifdef PAPERLOOM_BENCH_RAPIDJSON
bool rapidJSONDecodes(const std::string& text) {
  rapidjson::Document document;
  return !document.Parse(text.data(), text.size()).HasParseError();
}
#endif

#ifdef PAPERLOOM_BENCH_BOOST_JSON
bool boostJSONDecodes(const std::string& text) {
  boost::json::monotonic_resource memory;
  return boost::json::parse(text, &memory).is_object();
}
#endif

}  // namespace

std::vector<JSONPeer> jsonPeers() {
  return {
#ifdef PAPERLOOM_BENCH_RAPIDJSON
      {"rapidjson", &rapidJSONDecodes},
#endif
#ifdef PAPERLOOM_BENCH_BOOST_JSON
      {"boost-json", &boostJSONDecodes},
#endif
  };
}

}  // namespace paperloom::bench
