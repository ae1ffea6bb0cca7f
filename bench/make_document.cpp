// Writes a JSON document to measure with to standard output: the same bytes on every machine and in
// every run, about BYTES of them and never more.
//
//   make_document KIND BYTES

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

namespace quorvane::bench {
namespace {

using namespace std::string_literals;

// The generator's numbers are the same everywhere; the distributions of the library are not.
class Chance {
  public:
    std::size_t below(std::size_t count) { return random_() % count; }
    template <std::size_t N> std::string pick(const std::array<std::string_view, N>& choices) {
        return std::string(choices[below(N)]);
    }

  private:
    std::mt19937_64 random_{20240229};
};

constexpr std::array<std::string_view, 16> kWords = {
    "gateway", "billing", "search", "worker", "session", "mailer", "archive", "metrics",
    "ingest",  "render",  "index",  "cache",  "proxy",   "report", "backup",  "queue"};

std::string words(Chance& chance, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : " ") + chance.pick(kWords);
    return text;
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

// Appends parts while they fit, each but the first after a comma.
template <typename MakePart>
std::string fill(std::size_t bytes, std::string open, std::string_view close, MakePart make_part) {
    std::string text = std::move(open);
    for (std::size_t i = 0;; ++i) {
        const std::string part = make_part(i);
        if (part.empty() || text.size() + part.size() + close.size() + 1 > bytes) break;
        if (i > 0) text += ',';
        text += part;
    }
    return text.append(close);
}

std::string make_service(Chance& chance, std::size_t number) {
    std::string text = R"({"name":")" + chance.pick(kWords) + '-' + std::to_string(number);
    text += R"(","image":"registry.example/)" + chance.pick(kWords) + '/' + chance.pick(kWords);
    text += ":" + std::to_string(chance.below(9)) + '.' + std::to_string(chance.below(40));
    text += R"(","enabled":)"s + (chance.below(4) == 0 ? "false" : "true");
    text += R"(,"replicas":)" + std::to_string(1 + chance.below(12));
    text += R"(,"weight":)" + std::to_string(chance.below(10)) + '.' +
            std::to_string(chance.below(1000));
    text += R"(,"description":)" + quoted(words(chance, 4 + chance.below(12)));
    text += R"(,"resources":{"cpu":")" + std::to_string(100 * (1 + chance.below(40)));
    text += R"(m","memory":")" + std::to_string(64 << chance.below(6)) + R"(Mi"},"env":{)";
    const std::size_t variables = 2 + chance.below(8);
    for (std::size_t i = 0; i < variables; ++i) {
        text += (i == 0 ? "\"" : ",\"") + chance.pick(kWords) + "_" + std::to_string(i) + "\":";
        text += quoted(chance.below(8) == 0 ? "line one\\nline two \\\"x\\\"" : words(chance, 2));
    }
    text += R"(},"ports":[)" + std::to_string(1024 + chance.below(60000));
    text += ',' + std::to_string(1024 + chance.below(60000)) + R"(],"tags":[)";
    text += quoted(chance.pick(kWords)) + ",\"r\xC3\xA9gion\"," + quoted(chance.pick(kWords));
    text += R"(],"owner":null,"created":)" + std::to_string(1'700'000'000 + chance.below(9999999));
    return text + "}";
}

// Text that is known to be good, laid out with two blanks for each level.
std::string indent(std::string_view compact) {
    std::string text;
    std::size_t depth = 0;
    bool in_string = false;
    const auto line = [&] { text.append(1, '\n').append(2 * depth, ' '); };
    for (std::size_t i = 0; i < compact.size(); ++i) {
        const char byte = compact[i];
        if (in_string || byte == '"') {
            if (byte == '"' && (!in_string || compact[i - 1] != '\\')) in_string = !in_string;
            text += byte;
        } else if (byte == '{' || byte == '[') {
            text += byte;
            ++depth;
            line();
        } else if (byte == '}' || byte == ']') {
            --depth;
            line();
            text += byte;
        } else {
            text += byte;
            if (byte == ',') line();
            if (byte == ':') text += ' ';
        }
    }
    return text;
}

// Nested, as services keep their configuration, compact.
std::string make_configuration(std::size_t bytes) {
    Chance chance;
    return fill(bytes, R"({"version":3,"services":[)", "]}",
                [&](std::size_t i) { return make_service(chance, i); });
}

// The same as people keep it.
std::string make_indented(std::size_t bytes) {
    std::string text = indent(make_configuration(bytes / 3 * 2));
    return text.size() <= bytes ? text : indent(make_configuration(bytes / 2));
}

// At most 1,000,000, of 1 to 7 digits.
std::string make_integers(std::size_t bytes) {
    Chance chance;
    return fill(bytes, "[", "]", [&](std::size_t i) {
        return i == 999'999 ? ""
                            : std::to_string(chance.below(chance.below(3) == 0 ? 100 : 9999999));
    });
}

// One object of at most 100,000 members.
std::string make_keys(std::size_t bytes) {
    Chance chance;
    return fill(bytes, "{", "}", [&](std::size_t i) {
        if (i == 100'000) return ""s;
        return quoted(chance.pick(kWords) + "." + std::to_string(i * 7919)) + ":" +
               std::to_string(i);
    });
}

// Keys that are all equal under h = 31 h + c.
std::string make_crafted_keys(std::size_t bytes) {
    return fill(bytes, "{", "}", [](std::size_t i) {
        if (i == 100'000) return ""s;
        std::string key;
        for (std::size_t bit = 0; bit < 17; ++bit) key += (i >> bit & 1) != 0 ? "Ez" : "FY";
        return quoted(key) + ":1";
    });
}

// ASCII without escapes, 100 to 40,000 bytes each.
std::string make_long_strings(std::size_t bytes) {
    Chance chance;
    return fill(bytes, "[", "]", [&](std::size_t) {
        std::string text = words(chance, 9000);
        text.resize(100 + chance.below(chance.below(4) == 0 ? 39'900 : 2000));
        return quoted(text);
    });
}

// An escape every few bytes.
std::string make_escapes(std::size_t bytes) {
    constexpr std::array<std::string_view, 8> kPieces = {
        "\\n", "\\\"", "\\\\", "\\t", "\\u00e9", "\\u0001", "\\ud83d\\ude00", "\\/"};
    Chance chance;
    return fill(bytes, "[", "]", [&](std::size_t) {
        std::string text;
        const std::size_t pieces = 4 + chance.below(60);
        for (std::size_t i = 0; i < pieces; ++i) {
            text += chance.pick(kPieces) + std::string("word and").substr(0, chance.below(9));
        }
        return quoted(text);
    });
}

// Texts of characters of two, three and four bytes.
std::string make_non_ascii(std::size_t bytes) {
    constexpr std::array<std::string_view, 8> kTexts = {
        "\u041D\u0430\u0441\u0442\u0440\u043E\u0439\u043A\u0430 ",
        "\u8A2D\u5B9A\u30D5\u30A1\u30A4\u30EB\u3001",
        "\u03C1\u03CD\u03B8\u03BC\u03B9\u03C3\u03B7 ",
        "\u05D4\u05D2\u05D3\u05E8\u05D5\u05EA ",
        "\u00E9l\u00E8ve na\u00EFf ",
        "\U0001F600\U0001F680",
        "\uC124\uC815 ",
        "\u0938\u0947\u091F\u093F\u0902\u0917 "};
    Chance chance;
    return fill(bytes, "[", "]", [&](std::size_t) {
        std::string text;
        const std::size_t pieces = 1 + chance.below(40);
        for (std::size_t i = 0; i < pieces; ++i) text += chance.pick(kTexts);
        return quoted(text);
    });
}

// Towers of arrays and objects, 62 high.
std::string make_nested(std::size_t bytes) {
    return fill(bytes, "[", "]", [](std::size_t i) {
        if (i == 15'600) return ""s;
        std::string open;
        std::string close;
        for (std::size_t level = 0; level < 62; ++level) {
            open += level % 2 == 0 ? "[" : "{\"inner_node\":";
            close.insert(close.begin(), level % 2 == 0 ? ']' : '}');
        }
        return open + "1" + close;
    });
}

// {"id":1,"name":"...","on":true} by the thousand.
std::string make_small_objects(std::size_t bytes) {
    Chance chance;
    return fill(bytes, "[", "]", [&](std::size_t i) {
        return i == 240'000 ? ""
                            : R"({"id":)" + std::to_string(i) + R"(,"name":)" +
                                  quoted(chance.pick(kWords)) + R"(,"on":true})";
    });
}

constexpr struct {
    std::string_view name;
    std::string (*make)(std::size_t bytes);
} kKinds[] = {
    {"configuration", make_configuration},
    {"indented", make_indented},
    {"integers", make_integers},
    {"keys", make_keys},
    {"crafted_keys", make_crafted_keys},
    {"long_strings", make_long_strings},
    {"escapes", make_escapes},
    {"non_ascii", make_non_ascii},
    {"nested", make_nested},
    {"small_objects", make_small_objects},
};

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    for (const auto& kind : quorvane::bench::kKinds) {
        if (argc != 3 || kind.name != argv[1]) continue;
        const std::string document = kind.make(std::strtoul(argv[2], nullptr, 10));
        return std::fwrite(document.data(), 1, document.size(), stdout) == document.size() ? 0 : 1;
    }
    return 2;
}
