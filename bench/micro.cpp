// Micro-benchmarks of the steps that a request is made of.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "encoding/escape.h"
#include "eventlog/entry_text.h"
#include "eventlog/log_record.h"
#include "handler/reply_text.h"
#include "store/change.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/read_query.h"
#include "store/value.h"
#include "xml/text.h"

namespace {

using namespace veltrancord;

constexpr uint32_t reply_bound = 64U << 20;

// A document of `groups` groups with ten settings each, in the set under the name "Bench".
XmlDocument& load_document(int64_t groups) {
    FreeXmlDocs();
    std::string text = "<Bench>";
    for (int64_t group = 0; group < groups; ++group) {
        const std::string name = "Group" + std::to_string(group);
        text.append("<").append(name).append(" Level=\"2\">");
        for (int leaf = 0; leaf < 10; ++leaf) {
            const std::string value = "Value" + std::to_string(leaf);
            text.append("<").append(value).append(">a setting of some length</");
            text.append(value).append(">");
        }
        text.append("</").append(name).append(">");
    }
    text += "</Bench>";
    auto document = std::make_unique<XmlDocument>("Bench");
    document->LoadXMLFile(text.c_str());
    return *AddXmlDocNode("Bench", "/nowhere/Bench", std::move(document))->doc;
}

void split_path(benchmark::State& state) {
    for (auto step : state) {
        XmlPath list;
        benchmark::DoNotOptimize(SplitXmlPath("Network.Lan_5F1.Address.Primary.Value", list));
        benchmark::DoNotOptimize(list.size());
    }
}
BENCHMARK(split_path);

void escape_name(benchmark::State& state) {
    std::array<char, 512> out{};
    for (auto step : state) {
        benchmark::DoNotOptimize(url_encode(out.data(), out.size(), "a setting with_four blanks"));
        benchmark::DoNotOptimize(url_decode(out.data(), out.size(), "a_20setting_20with_5Ffour"));
    }
}
BENCHMARK(escape_name);

void look_up_last_leaf(benchmark::State& state) {
    load_document(state.range(0));
    const std::string path = "Bench.Group" + std::to_string(state.range(0) - 1) + ".Value9";
    for (auto step : state) {
        XmlValue value;
        benchmark::DoNotOptimize(ReadXmlValue(path, value));
    }
}
BENCHMARK(look_up_last_leaf)->Arg(10)->Arg(100)->Arg(10000);

void list_document(benchmark::State& state) {
    load_document(state.range(0));
    std::size_t bytes = 0;
    for (auto step : state) {
        reply_text reply;
        if (!reply.open(reply_bound)) {
            state.SkipWithError("no memory");
        }
        benchmark::DoNotOptimize(ReadXmlTree("Bench.*", reply, 0, {}));
        bytes += reply.size();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(list_document)->Arg(10)->Arg(100)->Arg(1000);

void serialise_document(benchmark::State& state) {
    const XmlDocument& document = load_document(state.range(0));
    std::size_t bytes = 0;
    for (auto step : state) {
        bytes += SerialiseXmlDoc(document).size();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(serialise_document)->Arg(10)->Arg(100)->Arg(1000);

// The same bytes by the XML library, into a file that discards them.
void library_save(benchmark::State& state) {
    const XmlDocument& document = load_document(state.range(0));
    const std::size_t size = SerialiseXmlDoc(document).size();
    for (auto step : state) {
        benchmark::DoNotOptimize(document.SaveFile("/dev/null"));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}
BENCHMARK(library_save)->Arg(10)->Arg(100)->Arg(1000);

void decode_entry(benchmark::State& state) {
    for (auto step : state) {
        log_record record;
        benchmark::DoNotOptimize(decode_log_entry("1:2024:0:31:23:5:9:3:detail:1", record));
        benchmark::DoNotOptimize(pack_log_record(record));
    }
}
BENCHMARK(decode_entry);

void set_value(benchmark::State& state) {
    XmlDocument& document = load_document(state.range(0));
    XmlPath list;
    if (!SplitXmlPath("Bench.Group" + std::to_string(state.range(0) - 1) + ".Value9", list)) {
        state.SkipWithError("no path");
        return;
    }
    for (auto step : state) {
        benchmark::DoNotOptimize(SetXmlValue(document, list, "another value"));
    }
}
BENCHMARK(set_value)->Arg(10)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
