#pragma once

#define RAPIDJSON_SSE2 1
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "json/parser.h"
#include "json/writer.h"

/// The parsers that are measured, in one form: each takes the same bytes, keeps a whole tree, and
/// writes it as compact text.
namespace quorvane::bench {

/// What every parser may read behind the input; the strictest peer wants 64.
inline constexpr std::size_t kInputPadding = 64;

/// The document as the program has it: a buffer that the parser adopts.
struct OurTree {
    explicit OurTree(std::string_view input) : buffer(ByteBuffer::copy_of(input)) {}
    bool parse() {
        result = parse_json(std::move(buffer), kApplicationJsonLimits);
        return result.ok;
    }
    std::size_t write() {
        text = write_json(result.value);
        return text.size();
    }
    std::size_t write_indented() {
        text = write_pretty_json(result.value);
        return text.size();
    }
    ByteBuffer buffer;
    JsonParseResult result;
    ByteBuffer text;
};

/// The same from bytes that are not ours to keep: they are copied first.
struct OurCopyingTree : OurTree {
    explicit OurCopyingTree(std::string_view bytes) : OurTree(std::string_view()), input(bytes) {}
    bool parse() {
        result = parse_json(input, kApplicationJsonLimits);
        return result.ok;
    }
    std::string_view input;
};

/// Numbers stay text and UTF-8 is checked, as we do; the input is not changed in place.
struct RapidTree {
    explicit RapidTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        constexpr unsigned kFlags =
            rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
        document.Parse<kFlags>(input.data(), input.size());
        return !document.HasParseError();
    }
    std::size_t write() {
        text.Clear();
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

/// Its input is padded, so that it copies nothing either.
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

}  // namespace quorvane::bench
