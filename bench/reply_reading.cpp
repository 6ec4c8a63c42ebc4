// Measures how fast replies are read, ours beside Expat, pugixml and libxml2's reader. First all of
// them read each document once; it ends here when one of them builds another model.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>

#include "reply_document.h"
#include "reply_readers.h"

namespace {

template <class Reader>
void measure_model(benchmark::State& state, std::string_view document) {
    Reader reader(document.size());
    for (auto _ : state) {
        typename Reader::model model;
        if (!read_model(&reader, document, &model)) state.SkipWithError("not read to its end");
        benchmark::DoNotOptimize(model);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(document.size()));
}

template <class Reader>
void measure_tokens(benchmark::State& state, std::string_view document) {
    Reader reader(document.size());
    for (auto _ : state) {
        if (!read_tokens(&reader, document)) state.SkipWithError("not read to its end");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(document.size()));
}

// Twice, since a reader may keep something of the first reply.
template <class Reader>
std::string describe_twice(std::string_view document) {
    Reader reader(document.size());
    typename Reader::model first;
    read_model(&reader, document, &first);
    typename Reader::model second;
    read_model(&reader, document, &second);
    return model_description(second);
}

using measurement = void(benchmark::State& state, std::string_view document);

struct contender {
    const char* name;
    measurement* model;
    measurement* tokens;
    std::string (*describe)(std::string_view document);
};

template <class Reader>
constexpr contender make(const char* name) {
    return {.name = name,
            .model = measure_model<Reader>,
            .tokens = measure_tokens<Reader>,
            .describe = describe_twice<Reader>};
}

constexpr contender contenders[] = {make<our_reader>("ours"), make<expat_reader>("Expat"),
                                    make<pugixml_reader>("pugixml"),
                                    make<libxml2_reader>("libxml2")};

struct document_size {
    const char* name;
    std::size_t bytes;
};
constexpr document_size sizes[] = {
    {"2 KB", 2UL << 10}, {"200 KB", 200UL << 10}, {"8 MB", 8UL << 20}};

void check(const std::string& document) {
    const std::string ours = contenders[0].describe(document);
    for (const contender& each : contenders) {
        if (each.describe(document) == ours) continue;
        std::fprintf(stderr, "%s builds another model of %zu bytes\n", each.name, document.size());
        std::abort();
    }
}

void add(const contender& each, const char* size, std::string_view document) {
    const auto name = [&](const char* work) {
        return std::string(work) + '/' + size + '/' + each.name;
    };
    benchmark::RegisterBenchmark(name("model").c_str(), each.model, document);
    benchmark::RegisterBenchmark(name("tokens").c_str(), each.tokens, document);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    std::string documents[std::size(sizes)];
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        documents[i] = reply_document(sizes[i].bytes);
        check(documents[i]);
        for (const contender& each : contenders)
            add(each, sizes[i].name, documents[i]);
    }
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
