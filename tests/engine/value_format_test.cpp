// Value texts shared by the blocks, and the parameter contract of CAudioBlock.
#include <gtest/gtest.h>

#include "engine/probe_blocks.h"
#include "engine/value_format.h"

TEST(ValueFormat, DecibelsPanThreeSignificantDigitsAndEnvelopeTimes) {
    EXPECT_EQ(FormatDecibels(0.0005f), "-inf") << "a floor below -60dB";
    EXPECT_EQ(FormatDecibels(0.0f), "-inf");
    EXPECT_EQ(FormatDecibels(1.0f), "0dB");
    EXPECT_EQ(FormatDecibels(0.25f), "-12dB");
    EXPECT_EQ(FormatDecibels(0.001f), "-60dB");
    EXPECT_EQ(FormatPan(0.505f), "center") << "a dead zone around the centre";
    EXPECT_EQ(FormatPan(0.25f), "50% left");
    EXPECT_EQ(FormatPan(1.0f), "100% right");
    EXPECT_EQ(FormatPan(0.0f), "100% left");
    EXPECT_EQ(FormatBipolar(0.75f), "0.5");
    EXPECT_EQ(FormatSemitones(0.0f), "-12");
    EXPECT_EQ(FormatSemitones(0.5f), "0");
    EXPECT_EQ(FormatPercent(0.12345f), "12.3%");
    EXPECT_EQ(FormatHertz(0.0f), "0.215Hz");
    EXPECT_EQ(FormatHertz(1.0f), "6.88Hz");
    EXPECT_EQ(FormatPercent(12.345f), "1.23e+03%") << "a stream with precision 3 goes scientific";
    // Envelope times run from 64 samples to six seconds.
    EXPECT_EQ(EnvelopeLengthSamples(0.0f, 44100.0f), 64);
    EXPECT_EQ(EnvelopeLengthSamples(1.0f, 44100.0f), 264600);
    EXPECT_EQ(FormatEnvelopeTime(0.0f, 44100.0f), "1ms");
    EXPECT_EQ(FormatEnvelopeTime(1.0f, 44100.0f), "6000ms");
    EXPECT_EQ(FormatEnvelopeTime(1.0f, 48000.0f), "6000ms");
}

TEST(BlockParameters, ClampingPrepareAndAConfigureThatAppendsNames) {
    VrokInstance engine{probe::Factory};
    engine.SetVoiceCount(2, false);
    probe::ProbeBlock block(&engine, 44100.0f, probe::kPass);
    block.SetParameter(0, 1.5f);
    EXPECT_EQ(block.values[0], 1.0f);
    block.SetParameter(0, -2.0f);
    EXPECT_EQ(block.values[0], 0.0f);
    block.SetParameter(5, 0.3f);
    block.SetParameter(-1, 0.3f);
    EXPECT_EQ(block.numParameters, 1);
    EXPECT_EQ(block.GetParameter(5), 0.0f);

    InputPort& port = *block.ports[0];
    port.hasConnection = true;
    port.cleared = false;
    std::fill(std::begin(port.written), std::end(port.written), 1);
    block.PrepareBlock(64);
    EXPECT_FALSE(port.hasConnection);
    EXPECT_TRUE(port.cleared);
    EXPECT_EQ(port.written[1], 0);
    EXPECT_EQ(port.written[2], 1) << "flags above the voice count wait until it rises";

    block.FreeTables();
    EXPECT_EQ(block.numPorts, 0);
    EXPECT_EQ(block.numParameters, 0);
    block.Configure(2, 1, kCategoryControllers, "Again");
    block.DefineParameter(0, "First", ParamKind::Slider);
    ASSERT_EQ(block.names.size(), 3u) << "the second Configure appends behind the first";
    EXPECT_EQ(block.names[0], "First");
    EXPECT_EQ(block.names[2], "undefined");
    EXPECT_EQ(block.kinds[0], int(ParamKind::Slider));
    EXPECT_TRUE(block.ports[0]->cleared);
    EXPECT_EQ(block.ports[0]->written[15], 0);
}
