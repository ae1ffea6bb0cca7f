// Compares the JSON parser and writer with two other libraries, and with the plain forms of their
// own rules, over generated and mutated documents.
//
//   json_differential [DOCUMENTS] [SEED]
//
// Prints how many were accepted and refused, and every kind of disagreement that is known, with
// its count: these libraries are laxer or stricter in places.  Any other one ends the program.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "../fuzz/json_checks.h"
#include "json_peers.h"

namespace quorvane::bench {
namespace {

class Generator {
  public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    std::string document() {
        std::string text = value(0);
        if (below(3) == 0) return text;
        for (std::size_t edits = 1 + below(3); edits > 0; --edits) mutate(text);
        return text;
    }

  private:
    std::size_t below(std::size_t count) { return random_() % count; }
    std::string pick(const std::vector<std::string>& from) { return from[below(from.size())]; }

    std::string blank() { return below(3) == 0 ? pick({" ", "\n", "\r\n  ", "\t", "   "}) : ""; }

    std::string value(std::size_t depth) {
        const std::size_t kind = below(depth > 5 ? 6 : 10);
        if (kind < 2) return number();
        if (kind < 5) return string();
        if (kind == 5) return pick({"true", "false", "null"});
        const bool object = kind > 7;
        std::string text = object ? "{" : "[";
        const std::size_t size = below(8) == 0 ? below(40) : below(5);
        for (std::size_t i = 0; i < size; ++i) {
            text += (i == 0 ? "" : ",") + blank();
            if (object) text += key(i) + blank() + ":" + blank();
            text += value(depth + 1) + blank();
        }
        return blank() + text + blank() + (object ? "}" : "]");
    }

    // Mostly new, now and then one that may stand there already.
    std::string key(std::size_t number) {
        if (below(20) == 0) return pick({"\"k1\"", "\"\"", "\"\\u006b1\""});
        if (below(6) == 0) return string();
        return "\"k" + std::to_string(number) + "\"";
    }

    std::string number() {
        return pick({"0", "-0", "7", "-12", "123456", "9223372036854775807", "-9223372036854775808",
                     "9223372036854775808", "1.5", "0.125", "-2.50", "1e3", "2E+02", "5e-1",
                     std::to_string(random_())});
    }

    std::string string() {
        std::string text = "\"";
        for (std::size_t pieces = below(6); pieces > 0; --pieces) {
            text += pick({"a", "plain text", "a longer piece of plain text, beyond one step", "\\n",
                          "\\\"", "\\\\", "\\/", "\\b\\f\\r\\t", "\\u0000", "\\u001F", "\\u00e9",
                          "\\uFFFF", "\\ud83d\\ude00", "\xC3\xA9", "\xE2\x82\xAC",
                          "\xF0\x9F\x98\x80", "\x7F"});
        }
        return text + "\"";
    }

    void mutate(std::string& text) {
        static const std::vector<std::string> kPieces = {"{",
                                                         "}",
                                                         "[",
                                                         "]",
                                                         ",",
                                                         ":",
                                                         "\"",
                                                         "\\",
                                                         "\\u",
                                                         "0",
                                                         "-",
                                                         "+",
                                                         ".",
                                                         "e",
                                                         "1",
                                                         " ",
                                                         "\n",
                                                         "tru",
                                                         "\v",
                                                         "null",
                                                         "\x01",
                                                         "\x1F",
                                                         "\\ud83d",
                                                         "\\udc00",
                                                         "\x80",
                                                         "\xC0",
                                                         "\xE0",
                                                         "\xED\xA0\x80",
                                                         "\xF4",
                                                         "\xFF",
                                                         "\xF0\x80",
                                                         "\xEF\xBB\xBF",
                                                         std::string(1, '\0')};
        const std::size_t at = below(text.size() + 1);
        switch (below(6)) {
            case 0:
                text.insert(at, pick(kPieces));
                break;
            case 1:
                text.resize(at);
                break;
            case 2:
                text.erase(at, 1 + below(3));
                break;
            case 3:
                text.insert(at, text.substr(below(text.size() + 1), below(30)));
                break;
            case 4:
                if (at < text.size()) text[at] = static_cast<char>(random_());
                break;
            default:
                if (at < text.size()) text.replace(at, 1, pick(kPieces));
        }
    }

    std::mt19937_64 random_;
};

enum class Verdict { kAccepted, kRefused, kNumberTooLarge };

struct NlohmannOutcome {
    Verdict verdict;
    nlohmann::json document;
};

NlohmannOutcome read_nlohmann(std::string_view text) {
    try {
        return {Verdict::kAccepted, nlohmann::json::parse(text)};
    } catch (const nlohmann::json::out_of_range&) {
        return {Verdict::kNumberTooLarge, {}};
    } catch (const nlohmann::json::exception&) {
        return {Verdict::kRefused, {}};
    }
}

using Counts = std::map<std::string, long>;

void compare_nlohmann(std::string_view input, const JsonParseResult& ours, Counts& counts) {
    const NlohmannOutcome peer = read_nlohmann(input);
    if ((peer.verdict == Verdict::kAccepted) != ours.ok) {
        if (peer.verdict == Verdict::kNumberTooLarge && ours.ok) {
            ++counts["nlohmann refuses a number that it cannot hold"];
        } else if (input.starts_with("\xEF\xBB\xBF") && !ours.ok) {
            ++counts["nlohmann skips a byte-order mark"];
        } else {
            reference::require(false, "nlohmann judges differently", input);
        }
        return;
    }
    if (!ours.ok) return;
    const ByteBuffer written = write_json(ours.value);
    reference::require(read_nlohmann(written.view()).document == peer.document,
                       "nlohmann reads other content", input);
}

void compare_rapidjson(std::string_view input, const JsonParseResult& ours, bool unique_keys,
                       Counts& counts) {
    RapidTree peer(input);
    if (peer.parse() != ours.ok) {
        std::string known;
        if (peer.document.GetParseError() == rapidjson::kParseErrorNumberTooBig) {
            known = "rapidjson refuses a number that it cannot hold";
        } else if (!ours.ok && input.find_first_of("\xEF\xBB\xBF") == 0) {
            known = "rapidjson skips any byte of a byte-order mark";
        } else if (ours.error.message == "unexpected JSON low surrogate") {
            known = "rapidjson takes a lone low surrogate";
        }
        reference::require(!known.empty(), "rapidjson judges differently", input);
        ++counts[known];
        return;
    }
    // Its objects compare equal only when their keys are unique.
    if (!ours.ok || !unique_keys) return;
    const ByteBuffer written = write_json(ours.value);
    RapidTree again(written.view());
    reference::require(again.parse() && again.document == peer.document,
                       "rapidjson reads other content", input);
}

void run(long documents, std::uint64_t seed) {
    Generator generator(seed);
    Counts counts;
    JsonLimits limits = kApplicationJsonLimits;
    limits.reject_duplicate_keys = false;
    for (long i = 0; i < documents; ++i) {
        const std::string input = generator.document();
        reference::check_json(input);
        const JsonParseResult ours = parse_json(input, limits);
        ++counts[ours.ok ? "accepted" : std::string("refused: ").append(ours.error.message)];
        if (input.find('\0') != std::string::npos) {
            ++counts["both others end at a zero byte (not compared)"];
            continue;
        }
        const bool unique_keys = parse_json(input, kApplicationJsonLimits).ok;
        compare_nlohmann(input, ours, counts);
        compare_rapidjson(input, ours, unique_keys, counts);
    }
    for (const auto& [what, count] : counts) std::printf("%9ld %s\n", count, what.c_str());
}

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) try {
    const long documents = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 200'000;
    quorvane::bench::run(documents, argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1);
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
