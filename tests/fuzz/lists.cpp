// The input as a parameters list, as a questions list, and as the text from which a list is made.
#include <algorithm>
#include <memory>
#include <sstream>

#include "common/marshalling.h"
#include "fuzz.h"
#include "text/names.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Records = std::unique_ptr<OstrelValue[]>;

struct Codec {
    decltype(&OstrelUnMarshallParameters) parse;
    decltype(&OstrelMarshallParameters) build;
};
constexpr Codec codecs[] = {{OstrelUnMarshallParameters, OstrelMarshallParameters},
                            {OstrelUnMarshallQuestions, OstrelMarshallQuestions}};

Bytes build(const Codec& codec, unsigned int count, OstrelValue* records) {
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> list(codec.build(6, count, records, &size));
    return {list.get() + 4, list.get() + size};
}

// Each list has one layout only: building what was parsed gives the same bytes.
bool parses(const Codec& codec, Bytes list) {
    unsigned int count = 77;
    OstrelValue* records = nullptr;
    const bool isParsed = codec.parse(static_cast<unsigned int>(list.size()), list.data(), &count, &records);
    const Records owner(records);
    require(isParsed || (count == 77 && records == nullptr), "a refused list leaves the out-arguments");
    const Bytes again = isParsed ? build(codec, count, records) : Bytes();
    require(again.size() <= list.size() && std::equal(again.begin(), again.end(), list.begin()),
            "a parsed list is built again byte by byte");
    return isParsed;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Bytes list(data, data + size);
    if (const auto entries = parseParameters(list)) {
        ParametersBuilder builder(6);
        for (const Parameter& entry : *entries)
            builder.add(entry);
        require(std::equal(builder.bytes().begin() + 4, builder.bytes().end(), list.begin()),
                "the builder builds what was parsed");
    }
    // Lines become entries: what stands before a NUL is the name, all of it the value.
    const auto count = static_cast<unsigned int>(std::count(list.begin(), list.end(), '\n') + 1);
    const Records records = std::make_unique<OstrelValue[]>(count);
    std::istringstream lines(std::string(list.begin(), list.end()));
    std::string line;
    for (unsigned int i = 0; i < count; ++i) {
        std::getline(lines, line);
        records[i].setValue(static_cast<unsigned int>(line.size()),
                            reinterpret_cast<unsigned char*>(line.data()));
        records[i].setName(line.substr(0, store::longestName).c_str());
        records[i].setTpltName(records[i / 2].name);
        records[i].pKey = i;
    }
    for (const Codec& codec : codecs) {
        parses(codec, list);
        Bytes built = build(codec, count, records.get());
        require(parses(codec, built), "what was built is parsed");
        built.pop_back();
        require(!parses(codec, built), "a list that is cut is not parsed");
    }
    return 0;
}
