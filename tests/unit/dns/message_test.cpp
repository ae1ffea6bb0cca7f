#include "dns/message.h"

#include <gtest/gtest.h>

#include "dns/name_server.h"

namespace quorvane {
namespace {

using namespace std::string_literals;

TEST(BuildDnsQuery, WritesOneQuestion) {
    EXPECT_EQ(build_dns_query("a.bc", 0xBEEF, kDnsTypeAaaa),
              "\xBE\xEF\x01\0\0\x01\0\0\0\0\0\0\x01"s + "a\x02"s + "bc\0\0\x1C\0\x01"s);
    EXPECT_FALSE(build_dns_query("a.bc", 1, 5));
}

TEST(EncodeDnsName, BoundsLabelsAndName) {
    const std::string label(63, 'x');
    const std::string longest = label + "." + label + "." + label + "." + label.substr(2);
    EXPECT_TRUE(encode_dns_name(longest + ".") && encode_dns_name("\xC3\xA9 _"));
    for (const std::string& bad : {label + "x", longest + "x", "a.."s, ""s, "."s, ".a"s, "a..b"s}) {
        EXPECT_FALSE(encode_dns_name(bad)) << bad;
    }
    EXPECT_EQ(encode_dns_name("a."), encode_dns_name("a"));
    EXPECT_EQ(encode_dns_name(longest)->size(), 255U);
}

// A response to identifier 1 with these counts; one question "a" stands at offset 12.
const std::string kQuestion = "\1a\0\0\x01\0\x01"s;
std::string head(const std::string& flags, int questions, int answers) {
    return "\0\x01"s + flags + '\0' + static_cast<char>(questions) +
           static_cast<char>(answers / 256) + static_cast<char>(answers % 256) + "\0\0\0\0"s;
}
std::string record(const std::string& name, const std::string& type, const std::string& data) {
    return name + type + "\0\0\0\x3C\0"s + static_cast<char>(data.size()) + data;
}

TEST(ParseDnsResponse, TakesAddressesByTheirOwnType) {
    const std::string good = head("\x81\x80", 1, 1) + kQuestion;
    const std::string pointer = "\xC0\x0C";
    const std::string a = "\0\x01\0\x01"s;
    const std::string aaaa = "\0\x1C\0\x01"s;
    const std::string four = record(pointer, a, "\x0A\0\0\x02"s);
    const std::string six = record(pointer, aaaa, "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x01"s);
    const std::string alias = record(pointer, "\0\x05\0\x01"s, "\1b\0"s);
    std::string labels126;
    for (int i = 0; i < 126; ++i) labels126 += "\x01x";
    const struct {
        const char* name;
        std::string datagram;
        std::optional<std::string> addresses;  // Nothing: the datagram is refused.
    } cases[] = {
        {"in their order", head("\x81\x80", 1, 3) + kQuestion + four + six + four,
         "10.0.0.2 2001:db8:0:0:0:0:0:1 10.0.0.2 "},
        {"truncated, an alias", head("\x83\x80", 1, 2) + kQuestion + alias + four, "10.0.0.2 "},
        {"no question, bytes after the end",
         head("\x80\0"s, 0, 1) + record("\0"s, a, "\1\2\3\4") + "z", "1.2.3.4 "},
        {"class CH", good + record(pointer, "\0\x01\0\x03"s, "\1\2\3\4"), ""},
        {"A of 16 bytes", good + record(pointer, a, std::string(16, 'x')), ""},
        {"AAAA of 4 bytes", good + record(pointer, aaaa, "\1\2\3\4"), ""},
        {"16 questions", head("\x81\x80", 16, 0) + std::string(80, '\0'), ""},
        {"256 answers", head("\x81\x80", 0, 256) + std::string(2816, '\0'), ""},
        {"126 steps", good + record(labels126 + "\0"s, a, "\1\2\3\4"), "1.2.3.4 "},
        {"another identifier", "\0\x02"s + (good + four).substr(2), {}},
        {"no response", head("\x01\x80", 1, 1) + kQuestion + four, {}},
        {"format error", head("\x81\x81", 1, 1) + kQuestion + four, {}},
        {"17 questions", head("\x81\x80", 17, 0) + std::string(85, '\0'), {}},
        {"257 answers", head("\x81\x80", 0, 257) + std::string(2827, '\0'), {}},
        {"pointer to itself", good + record("\xC0\x13", a, "\1\2\3\4"), {}},
        {"pointer past the end", good + record("\xFF\xFF", a, "\1\2\3\4"), {}},
        {"label of type 01", good + record("\x40" + std::string(65, '\0'), a, "\1\2\3\4"), {}},
        {"127 steps, the last a pointer", good + record(labels126 + pointer, a, "\1\2\3\4"), {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DnsAnswer got = parse_dns_response(c.datagram, 1);
        std::string shown;
        for (const std::string& address : got.addresses) shown += address + " ";
        EXPECT_EQ(got.ok, c.addresses.has_value());
        EXPECT_EQ(got.error, got.ok ? 0 : -EBADMSG);
        EXPECT_EQ(shown, c.addresses.value_or(""));
        EXPECT_FALSE(got.timed_out);
    }
}

TEST(ChooseNameServer, TakesTheFirstUsableLine) {
    const char* const cases[][2] = {
        {"# x\nsearch a\nnameserver ::1\nnameserver 10.0.0.4\nnameserver 10.0.0.3", "10.0.0.4"},
        {"nameserver 10.0.0.5\r\n", "10.0.0.5"},
        {" nameserver 10.0.0.2\nnameserver\t10.0.0.2\nNameserver 10.0.0.2\nnameserver  10.0.0.2\n"
         "nameserver 10.0.0.2 \nnameserver 10.0.0.2:53\nnameserver 10.0.0.2\r\r\n",
         "127.0.0.53"}};
    for (const auto& [file, server] : cases) EXPECT_EQ(choose_name_server(file), server) << file;
}

}  // namespace
}  // namespace quorvane
