#pragma once

#include <cstdint>
#include <string>

#include "HostKit/AudioSource.h"

// Words and numbers for people.

// A person's word for the importer's number of a sample format.
std::string sampleFormatName(std::int32_t number);
// Whether samples of that number become audio.
bool isKnownSampleFormat(std::int32_t number);
// "44.1 kHz".
std::string rateText(float rate);
// "1 channel".
std::string countText(std::int64_t count, const std::string& noun);
// h:mm:ss.mmm; "unknown" for audio without a rate.
std::string durationText(const hostkit::AudioInfo& info);
// The same as short as it can be told: "0.5 ms", "0:05.000", "1:30:00.000".
std::string shortDurationText(const hostkit::AudioInfo& info);
// 0 for audio without a rate.
double secondsOf(const hostkit::AudioInfo& info);
// The beginning of a UTF-8 text, of at most `size` bytes, with an ellipsis where it is cut.
std::string shortened(const std::string& text, std::size_t size);
