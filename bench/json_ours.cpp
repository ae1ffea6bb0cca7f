//   json_ours <DOCUMENT

#include "json_first.h"

#include "json/parser.h"
#include "json/writer.h"

namespace quorvane::bench {
namespace {

// The document as the program has it: a buffer that the parser adopts.
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
    ByteBuffer buffer;
    JsonParseResult result;
    ByteBuffer text;
};

}  // namespace
}  // namespace quorvane::bench

int main() { quorvane::bench::measure<quorvane::bench::OurTree>(); }
