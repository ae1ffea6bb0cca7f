//   json_peers rapidjson|simdjson|nlohmann <DOCUMENT
//
// A program of its own, because our operator new would give the others our huge pages.

#include "json_first.h"

#define RAPIDJSON_SSE2 1
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <nlohmann/json.hpp>
#include <string>

namespace quorvane::bench {
namespace {

// As in our parser numbers stay text, UTF-8 is checked and the input is not changed in place.
struct RapidTree {
    explicit RapidTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        constexpr unsigned kFlags =
            rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
        document.Parse<kFlags>(input.data(), input.size());
        return !document.HasParseError();
    }
    std::size_t write() {
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        document.Accept(writer);
        return text.GetSize();
    }
    std::string_view input;
    rapidjson::Document document;
    rapidjson::StringBuffer text;
};

struct NlohmannTree {
    explicit NlohmannTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        document = nlohmann::json::parse(input, nullptr, false);
        return !document.is_discarded();
    }
    std::size_t write() {
        text = document.dump();
        return text.size();
    }
    std::string_view input;
    nlohmann::json document;
    std::string text;
};

// Its input is padded, so that it copies nothing either.
struct SimdTree {
    explicit SimdTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        return parser.parse(input.data(), input.size(), false).get(root) == simdjson::SUCCESS;
    }
    std::size_t write() {
        text = simdjson::minify(root);
        return text.size();
    }
    std::string_view input;
    simdjson::dom::parser parser;
    simdjson::dom::element root;
    std::string text;
};

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    using namespace quorvane::bench;
    const std::string_view library = argc == 2 ? argv[1] : "";
    if (library == "rapidjson") measure<RapidTree>();
    if (library == "simdjson") measure<SimdTree>();
    if (library == "nlohmann") measure<NlohmannTree>();
    return 2;
}
