#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <cairo.h>

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

constexpr unsigned kPeak = 0x8DB8EA, kRMS = 0x2C6FC2, kOver = 0xD64545, kZero = 0xB4BECB;

// A PNG file, decoded.
class Picture {
public:
  explicit Picture(const std::filesystem::path& path)
      : fSurface(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy) {
    if (cairo_surface_status(fSurface.get()) != CAIRO_STATUS_SUCCESS) {
      throw std::runtime_error("cannot read " + path.string());
    }
  }
  int width() const { return cairo_image_surface_get_width(fSurface.get()); }
  int height() const { return cairo_image_surface_get_height(fSurface.get()); }
  unsigned at(int x, int y) const {
    const auto* const row = cairo_image_surface_get_data(fSurface.get()) +
                            y * cairo_image_surface_get_stride(fSurface.get());
    return reinterpret_cast<const unsigned*>(row)[x] & 0xFFFFFF;
  }
  long count(unsigned colour) const {
    long count = 0;
    for (int y = 0; y < height(); ++y) {
      for (int x = 0; x < width(); ++x)
        count += at(x, y) == colour ? 1 : 0;
    }
    return count;
  }

private:
  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> fSurface;
};

struct Lane {
  int left, top, right, bottom;  // the last two behind the end
  int width() const { return right - left; }
  int height() const { return bottom - top; }
};

class Waveforms : public Qsndhost {
protected:
  using Signal = std::function<double(int frame)>;

  // A document of one channel of 16 bits at 8 kHz; its samples as an importer delivers them.
  std::vector<double> document(const std::string& name, int frames, const Signal& signal) {
    Wave wave;
    wave.rate = 8000;
    std::vector<double> samples;
    for (int i = 0; i < frames; ++i) {
      const double level = std::clamp(std::nearbyint(signal(i) * 32768), -32768.0, 32767.0);
      wave.data += little(static_cast<std::uint64_t>(static_cast<std::int64_t>(level)), 2);
      samples.push_back(level / 32768);
    }
    folder.write(name, storedDocument(wave.bytes()));
    return samples;
  }
  // Without a legend, whose squares would be counted too.
  Picture draw(const std::string& name, const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments{"waveform", name,       "out.png", "--width",
                                       "400",      "--height", "300"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    must(arguments);
    return Picture(folder / "out.png");
  }
  // The lane is where a full-scale square goes.
  Lane lane() {
    document("square.qsnd", 340000, [](int i) { return i % 20 < 10 ? 1 : -1; });
    const Picture picture = draw("square.qsnd");
    Lane lane{picture.width(), picture.height(), 0, 0};
    for (int y = 0; y < picture.height(); ++y) {
      for (int x = 0; x < picture.width(); ++x) {
        if (picture.at(x, y) != kRMS) continue;
        lane = {std::min(lane.left, x), std::min(lane.top, y), std::max(lane.right, x + 1),
                std::max(lane.bottom, y + 1)};
      }
    }
    return lane;
  }
};

// The rows of a lane between two levels.
int rowsBetween(const Lane& lane, double top, double bottom) {
  int rows = 0;
  for (int row = 0; row < lane.height(); ++row) {
    const double level = 1 - 2 * (row + 0.5) / lane.height();
    rows += level <= top && level >= bottom ? 1 : 0;
  }
  return rows;
}

TEST_F(Waveforms, AFullScaleSquareFillsItsLane) {
  const Lane box = lane();
  EXPECT_GT(box.width(), 300);
  EXPECT_GT(box.height(), 150);
  // Half a row at each edge is blended: 32767 is not quite full scale.
  const long area = static_cast<long>(box.width()) * box.height();
  EXPECT_NEAR(static_cast<double>(Picture(folder / "out.png").count(kRMS)),
              static_cast<double>(area), 2.0 * box.width());
  EXPECT_EQ(Picture(folder / "out.png").count(kPeak), 0);
}

TEST_F(Waveforms, SilenceIsOneRowInTheMiddle) {
  const Lane box = lane();
  document("silence.qsnd", 340000, [](int) { return 0; });
  const Picture picture = draw("silence.qsnd");
  EXPECT_EQ(picture.count(kPeak), box.width());
  EXPECT_EQ(picture.count(kRMS), 0);
  EXPECT_EQ(picture.at(box.left, box.top + box.height() / 2), kPeak);
  EXPECT_EQ(picture.at(box.right - 1, box.top + box.height() / 2), kPeak);
}

TEST_F(Waveforms, AnImpulseIsOneColumnUpwards) {
  const Lane box = lane();
  document("impulse.qsnd", box.width() * 1000,
           [&](int i) { return i == box.width() / 2 * 1000 + 500 ? 1 : 0; });
  const Picture picture = draw("impulse.qsnd");
  const int x = box.left + box.width() / 2;
  long high = 0;
  for (int y = box.top; y < box.bottom; ++y) {
    high += picture.at(x, y) == kPeak || picture.at(x, y) == kRMS ? 1 : 0;
  }
  EXPECT_NEAR(static_cast<double>(high), box.height() / 2.0, 2);
  EXPECT_NEAR(static_cast<double>(picture.count(kPeak) + picture.count(kRMS)),
              box.width() - 1 + static_cast<double>(high), 2);
}

TEST_F(Waveforms, ASineUnderAnEnvelopeIsAsADrawingByHand) {
  const Lane box = lane();
  const int per = 1000;  // frames a column
  const int frames = box.width() * per;
  const auto samples = document(
      "sine.qsnd", frames, [&](int i) { return std::sin(i * 0.7) * (0.1 + 0.9 * i / frames); });
  const Picture picture = draw("sine.qsnd");
  long wrong = 0, expectedPeak = 0, expectedRMS = 0, drawnPeak = 0, drawnRMS = 0;
  for (int column = 0; column < box.width(); ++column) {
    double top = -1, bottom = 1, squares = 0;
    for (int i = column * per; i < (column + 1) * per; ++i) {
      const double sample = samples[static_cast<std::size_t>(i)];
      top = std::max(top, sample);
      bottom = std::min(bottom, sample);
      squares += sample * sample;
    }
    const double rms = std::sqrt(squares / per);
    const int rmsRows = rowsBetween(box, rms, -rms);
    const int peakRows = rowsBetween(box, top, bottom) - rmsRows;
    int drawn[2] = {0, 0};
    for (int y = box.top; y < box.bottom; ++y) {
      drawn[0] += picture.at(box.left + column, y) == kPeak ? 1 : 0;
      drawn[1] += picture.at(box.left + column, y) == kRMS ? 1 : 0;
    }
    // Rows at an edge are blended, so that up to two on each side count for neither.
    wrong += std::abs(drawn[0] - peakRows) > 4 || std::abs(drawn[1] - rmsRows) > 2 ? 1 : 0;
    expectedPeak += peakRows;
    expectedRMS += rmsRows;
    drawnPeak += drawn[0];
    drawnRMS += drawn[1];
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_NEAR(static_cast<double>(drawnPeak), static_cast<double>(expectedPeak), 4.0 * box.width());
  EXPECT_NEAR(static_cast<double>(drawnRMS), static_cast<double>(expectedRMS), 2.0 * box.width());
  EXPECT_GT(drawnRMS, 10000);
}

TEST_F(Waveforms, ASteppedLineHasNoGaps) {
  const Lane box = lane();
  document("steps.qsnd", box.width() * 40, [](int i) { return i / 4000 % 2 == 0 ? 0.8 : -0.8; });
  const Picture picture = draw("steps.qsnd");
  // Wherever the signal jumps from one column to the next, a column spans all of the jump.
  long tall = 0;
  for (int x = box.left; x < box.right; ++x) {
    int rows = 0;
    for (int y = box.top; y < box.bottom; ++y) {
      rows += picture.at(x, y) == kPeak || picture.at(x, y) == kRMS ? 1 : 0;
    }
    tall += rows > box.height() * 0.75 ? 1 : 0;
  }
  EXPECT_EQ(tall, (box.width() * 40 - 1) / 4000);
}

TEST_F(Waveforms, FewFramesAreALineFromSampleToSample) {
  document("few.qsnd", 5, [](int i) { return i == 2 ? 0.9 : 0; });
  const Picture picture = draw("few.qsnd");
  EXPECT_GT(picture.count(kRMS), 100);
  EXPECT_LT(picture.count(kRMS), 2000);
  document("none.qsnd", 0, [](int) { return 0; });
  EXPECT_EQ(draw("none.qsnd").count(kRMS), 0);
}

TEST_F(Waveforms, LevelsAboveFullScaleAreMarked) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 32;
  for (int i = 0; i < 100000; ++i) {
    const float level = i < 50000 ? 0.5f : 1.5f;
    wave.data.append(reinterpret_cast<const char*>(&level), 4);
  }
  folder.write("over.qsnd", storedDocument(wave.bytes()));
  const Lane box = lane();
  const Picture picture = draw("over.qsnd");
  EXPECT_NEAR(static_cast<double>(picture.count(kOver)), 3.0 * box.width() / 2, 6);
  EXPECT_EQ(picture.at(box.right - 1, box.top), kOver);
  EXPECT_NE(picture.at(box.left, box.top), kOver);
}

TEST_F(Waveforms, ThereIsALaneForEachChannelDeliveredOrNot) {
  for (const std::uint16_t channels : std::vector<std::uint16_t>{1, 2, 6, 9}) {
    makeDocument("a.qsnd", 16, channels, 0);
    must({"waveform", "a.qsnd", "out.png", "--width", "300"});
    const Picture picture(folder / "out.png");
    int rows = 0;
    for (int y = 0; y < picture.height(); ++y)
      rows += picture.at(250, y) == kZero ? 1 : 0;
    EXPECT_EQ(rows, channels);
  }
  makeDocument("a.qsnd", 16, 9, 0);
  EXPECT_EQ(nlohmann::json::parse(must({"waveform", "--json", "a.qsnd"}))[0]["waveform"].size(),
            6u);
}

TEST_F(Waveforms, SizesAndThemesAreAsAskedFor) {
  makeDocument("a.qsnd", 16, 2, 5000);
  for (const auto& [width, height] : {std::pair{16, 16}, {40, 400}, {3000, 60}, {640, 480}}) {
    must({"waveform", "a.qsnd", "out.png", "--width", std::to_string(width), "--height",
          std::to_string(height), "--theme", "dark"});
    const Picture picture(folder / "out.png");
    EXPECT_EQ(picture.width(), width);
    EXPECT_EQ(picture.height(), height);
    EXPECT_EQ(picture.at(0, 0), 0x12161Cu);
  }
  must({"waveform", "a.qsnd", "out.png"});
  EXPECT_EQ(Picture(folder / "out.png").width(), 1200);
  EXPECT_EQ(Picture(folder / "out.png").at(0, 0), 0xFFFFFFu);
}

TEST_F(Waveforms, TheOutputsEndingTellsTheKind) {
  makeDocument("a.qsnd", 16, 2, 5000);
  must({"waveform", "a.qsnd", "a.SVG"});
  support::python(
      "import sys, xml.dom.minidom as m\n"
      "svg = m.parse(sys.argv[1]).documentElement\n"
      "assert svg.tagName == 'svg' and svg.getAttribute('width') in ('1200', '1200px')",
      {"a.SVG"}, folder.path());
  must({"waveform", "a.qsnd", "a.picture", "--as", "svg"});
  EXPECT_EQ(folder.read("a.picture"), folder.read("a.SVG"));
  must({"waveform", "a.qsnd", "a.png"});
  EXPECT_EQ(folder.read("a.png").substr(0, 4), "\x89PNG");
  EXPECT_EQ(shell("\"$0\" waveform a.qsnd - | cat").out, folder.read("a.png"));
  EXPECT_EQ(shell("\"$0\" waveform a.qsnd --as svg - | cat").out, folder.read("a.SVG"));
}

TEST_F(Waveforms, JSONHasThePairsOfEachColumn) {
  const auto samples = document("a.qsnd", 1000, [](int i) { return i / 1000.0 - 0.5; });
  const auto json = nlohmann::json::parse(must(
      {"waveform", "a.qsnd", "--json", "--width", "150", "--start", "100", "--frames", "800"}));
  ASSERT_EQ(json.size(), 1u);
  const auto& item = json[0];
  EXPECT_EQ(item["file"], "a.qsnd");
  EXPECT_EQ(item["start"], 100);
  EXPECT_EQ(item["frames"], 800);
  const auto columns = item["columns"].get<std::size_t>();
  EXPECT_GT(columns, 100u);
  ASSERT_EQ(item["waveform"][0]["min"].size(), columns);
  for (std::size_t i = 0; i < columns; ++i) {
    EXPECT_NEAR(item["waveform"][0]["min"][i].get<double>(), samples[100 + i * 800 / columns],
                1e-6);
    EXPECT_NEAR(item["waveform"][0]["max"][i].get<double>(), samples[99 + (i + 1) * 800 / columns],
                1e-6);
    EXPECT_GE(item["waveform"][0]["rms"][i].get<double>(), 0);
  }
  const auto both = nlohmann::json::parse(must({"waveform", "a.qsnd", "a.png", "--json"}));
  EXPECT_EQ(both[0]["output"], "a.png");
  EXPECT_TRUE(std::filesystem::exists(folder / "a.png"));
  EXPECT_EQ(
      nlohmann::json::parse(must({"--quiet", "waveform", "a.qsnd", "a.qsnd", "--json"})).size(),
      2u);
}

TEST_F(Waveforms, TheSamePictureComesFromEitherProcess) {
  const std::string longName = "A " + std::string(120, 'w') + ".qsnd";
  makeDocument("long.qsnd", 24, 2, 200000);
  makeDocument("short.qsnd", 16, 1, 5);
  makeDocument("wide.qsnd", 16, 9, 3000);
  makeDocument(longName, 8, 2, 100);
  for (const std::string& name :
       {std::string("long.qsnd"), std::string("short.qsnd"), std::string("wide.qsnd"), longName}) {
    for (const char* const kind : {"png", "svg"}) {
      must({"waveform", name, "apart", "--as", kind});
      must({"--no-isolate", "waveform", name, "here", "--as", kind});
      EXPECT_EQ(folder.read("apart"), folder.read("here")) << name << " as " << kind;
    }
  }
}

}  // namespace
