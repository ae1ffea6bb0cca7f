#include "session/encoding.h"

#include <gtest/gtest.h>

#include "session/sha256.h"

namespace quorvane {
namespace {

// The examples of FIPS 180-4 and lengths around the end of the padding, the digests taken from an
// independent implementation.
TEST(Encoding, MatchesPublishedExamples) {
    const std::pair<std::string, const char*> digests[] = {
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        {std::string(1'000'000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
    for (const auto& [message, digest] : digests) EXPECT_EQ(hex_lower(sha256(message)), digest);
    // RFC 4648 section 10, without the padding, and the letters that differ from plain base64.
    const std::pair<std::string_view, const char*> encoded[] = {
        {"", ""}, {"f", "Zg"}, {"fo", "Zm8"}, {"foo", "Zm9v"}, {"\xfb\xff\xfe", "-__-"}};
    for (const auto& [bytes, text] : encoded) {
        const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
        EXPECT_EQ(base64url({data, bytes.size()}), text);
    }
}

}  // namespace
}  // namespace quorvane
