#include "audio/Transcript.h"

#include <gtest/gtest.h>

using namespace sonvale;

namespace {

using Lines = std::vector<TranscriptSegment>;

Transcript transcriptOf(Lines segments) {
    Transcript transcript;
    transcript.segments = std::move(segments);
    return transcript;
}

} // namespace

TEST(Transcript, PhrasesJoinOnAStrictPauseAndAnInclusiveLength) {
    struct Case {
        const char* name;
        Lines pieces;
        Lines lines;
    };
    const std::vector<Case> cases{
        {"0.59 s apart: one line", {{"Go", 0, 0.41}, {" on", 1.0, 1.5}}, {{"Go on", 0, 1.5}}},
        // 1.0 − 0.4 is exactly the double 0.6.
        {"0.6 s apart: two lines",
         {{"Go", 0, 0.4}, {" on", 1.0, 1.5}},
         {{"Go", 0, 0.4}, {"on", 1.0, 1.5}}},
        {"15.0 s long still joins", {{"a", 0, 14.5}, {" b", 14.6, 15.0}}, {{"a b", 0, 15.0}}},
        {"longer starts a new line",
         {{"a", 0, 14.5}, {" b", 14.6, 15.1}},
         {{"a", 0, 14.5}, {"b", 14.6, 15.1}}},
        {"text joins as it comes",
         {{" one", 0, 1}, {"two ", 1, 2}, {"\n", 2, 2.5}},
         {{"onetwo", 0, 2.5}}},
        {"an overlap keeps the later end", {{"a", 0, 3}, {" b", 1, 2}}, {{"a b", 0, 3}}},
        {"spaces alone are dropped", {{"a", 0, 1}, {"   ", 5, 6}}, {{"a", 0, 1}}},
        {"nothing", {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Transcript::phrases(c.pieces, 0.6, 15.0), c.lines);
    }
}

TEST(Transcript, ClockAndNumberedLines) {
    for (auto [seconds, text] : std::vector<std::pair<double, std::string>>{{0, "0:00"},
                                                                            {59.9, "0:59"},
                                                                            {600, "10:00"},
                                                                            {3599.99, "59:59"},
                                                                            {3600, "1:00:00"},
                                                                            {3725, "1:02:05"},
                                                                            {-1, "0:00"}})
        EXPECT_EQ(Transcript::clock(seconds), text) << seconds;

    const Transcript transcript =
        transcriptOf({{"Hello", 0, 1}, {"  there \n", 65.5, 66}, {"again", 3725, 3726}});
    EXPECT_EQ(
        transcript.numberedLines(),
        (std::vector<std::string>{"[0] (0:00) Hello", "[1] (1:05) there", "[2] (1:02:05) again"}));
    EXPECT_EQ(transcript.numberedLines(LineRange{1, 2}),
              (std::vector<std::string>{"[1] (1:05) there"}));
    EXPECT_TRUE(transcript.numberedLines(LineRange{3, 9}).empty());
}

TEST(Transcript, ChunksFillTheBudgetLineByLine) {
    // Each numbered line is "[i] (0:00) wxyz": 15 characters and a line break.
    Lines lines(5, {"wxyz", 0, 1});
    EXPECT_EQ(transcriptOf(lines).chunks(32), (std::vector<LineRange>{{0, 2}, {2, 4}, {4, 5}}));
    EXPECT_EQ(transcriptOf(lines).chunks(31),
              (std::vector<LineRange>{{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}}));
    // A line over the budget stands alone; characters, not bytes, count.
    lines[2].text = std::string(100, 'x');
    lines[3].text = "\u00e9\u00e9\u00e9\u00e9";
    EXPECT_EQ(transcriptOf(lines).chunks(32), (std::vector<LineRange>{{0, 2}, {2, 3}, {3, 5}}));
    EXPECT_TRUE(transcriptOf({}).chunks(4788).empty());

    EXPECT_EQ(transcriptCharacterBudget(4096), 4788);
    EXPECT_EQ(transcriptCharacterBudget(std::nullopt), 4788);
    EXPECT_EQ(transcriptCharacterBudget(2600), 2000);
    EXPECT_EQ(transcriptCharacterBudget(8192), 17076);
}

TEST(Transcript, RegionsFromTopicsKeepOnlyDistinctValidOnes) {
    Lines thirty;
    for (int i = 0; i < 30; ++i)
        thirty.push_back({"line", i * 10.0, i * 10.0 + 9});
    const Transcript talk = transcriptOf(thirty);
    // intro repeats Intro's title, Main repeats line 5, line 40 isn't there.
    auto regions = talk.regions({{"Intro", 0}, {"intro", 5}, {"Main", 5}, {"Wrap-up", 40}}, 48000,
                                300 * 48000);
    ASSERT_EQ(regions.size(), 1u);
    EXPECT_EQ(regions[0].name, "Intro");
    EXPECT_EQ(regions[0].start, 0);
    EXPECT_EQ(regions[0].end, 299 * 48000);

    // Sorted by line, titles trimmed, empty titles skipped; the last ends where the last line
    // does, clamped to the audio.
    regions = talk.regions({{" Wrap-up\n", 20}, {"  ", 3}, {"Start", 0}, {"Middle", 10}}, 48000,
                           250 * 48000);
    ASSERT_EQ(regions.size(), 3u);
    EXPECT_EQ((std::vector<std::string>{regions[0].name, regions[1].name, regions[2].name}),
              (std::vector<std::string>{"Start", "Middle", "Wrap-up"}));
    EXPECT_EQ(regions[1].start, 100 * 48000);
    EXPECT_EQ(regions[1].end, 200 * 48000);
    EXPECT_EQ(regions[2].end, 250 * 48000);
    EXPECT_NE(regions[0].id, regions[1].id);

    // Frames round halves away from zero; two lines on the same frame make no region for the
    // first topic.
    const Transcript close = transcriptOf({{"a", 0.25, 0.5}, {"b", 0.5, 0.75}, {"c", 0.75, 1.3}});
    regions = close.regions({{"A", 0}, {"B", 1}, {"C", 2}}, 2, 100);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].name, "B");
    EXPECT_EQ(regions[0].start, 1);
    EXPECT_EQ(regions[0].end, 2);
    EXPECT_EQ(regions[1].start, 2); // 1.5 frames round up
    EXPECT_EQ(regions[1].end, 3);
}
