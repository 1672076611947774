#pragma once

#include <optional>
#include <string>

namespace crash {

// The wave in a picture that is whole, a PNG or an SVG file, and the picture's size. What a picture
// is made with may be short of something without a word, and its words be in another font: they do
// not count, and must not be so many that others make room for them. Nothing where there is no such
// picture, or no wave in it.
std::optional<std::string> waveIn(const std::string& bytes);

}  // namespace crash
