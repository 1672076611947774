#include <cstdint>
#include <string>

#include <cairo.h>

#include <gtest/gtest.h>

#include "crash/Pictures.h"
#include "crash/ProgramTrial.h"

// What the suites take for a picture of a wave, so that none that is blank passes for one.

namespace crash {

namespace {

class WaveInAPicture : public ProgramTrial {
protected:
  std::string drawn(const std::string& name, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"waveform", "in.qsnd",  name, "--width",
                                          "200",      "--height", "100"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    support::mustRun(command(QSNDHOST, std::move(arguments)));
    return fFolder.read(name);
  }
};

TEST_F(WaveInAPicture, IsFoundInEitherKind) {
  EXPECT_TRUE(waveIn(drawn("a.png")).has_value());
  EXPECT_TRUE(waveIn(drawn("a.svg")).has_value());
}

TEST_F(WaveInAPicture, IsAnotherWhereTheAudioIs) {
  EXPECT_NE(waveIn(drawn("a.png")), waveIn(drawn("b.png", {"--start", "100"})));
  EXPECT_NE(waveIn(drawn("a.svg")), waveIn(drawn("b.svg", {"--start", "100"})));
}

TEST_F(WaveInAPicture, IsTheSameInOtherWords) {
  const auto wave = waveIn(drawn("a.png"));
  fEnvironment.emplace_back("FONTCONFIG_FILE", (fFolder / "absent").string());
  EXPECT_EQ(waveIn(drawn("b.png")), wave);
}

TEST_F(WaveInAPicture, IsNotInABlankOne) {
  cairo_surface_t* const blank = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 200, 100);
  ASSERT_EQ(cairo_surface_write_to_png(blank, (fFolder / "blank.png").c_str()),
            CAIRO_STATUS_SUCCESS);
  cairo_surface_destroy(blank);
  EXPECT_FALSE(waveIn(fFolder.read("blank.png")).has_value());
  EXPECT_FALSE(waveIn("<?xml version=\"1.0\"?>\n<svg width=\"200px\">\n</svg>\n").has_value());
}

TEST_F(WaveInAPicture, IsNotInPartOfOne) {
  for (const char* const name : {"a.png", "a.svg"}) {
    const std::string whole = drawn(name);
    for (const std::size_t size : {whole.size() - 1, whole.size() / 2, std::size_t{10}})
      EXPECT_FALSE(waveIn(whole.substr(0, size)).has_value()) << name << " " << size;
  }
  std::string changed = drawn("a.png");
  changed[changed.size() / 2] ^= 1;
  EXPECT_FALSE(waveIn(changed).has_value());
}

}  // namespace

}  // namespace crash
