#include "Program.h"

#include <cstdlib>
#include <stdexcept>

#include "plugin/BuiltBundle.h"
#include "tools/NamesIn.h"

Sound readSound(const std::filesystem::path& path) {
  Sound sound;
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &sound.info);
  if (file == nullptr) throw std::runtime_error(sf_strerror(nullptr));
  sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
  sf_readf_int(file, sound.samples.data(), sound.info.frames);
  sf_close(file);
  return sound;
}

support::Finished Qsndhost::run(std::vector<std::string> arguments) {
  // The importer's code for one set of instructions, where the run is for that.
  if (std::getenv("QSND_TEST_INSTRUCTIONS") != nullptr)
    arguments.insert(arguments.begin(), {"--bundle", builtBundle()});
  arguments.insert(arguments.begin(), QSNDHOST);
  return support::run({arguments, {}, folder.path(), environment});
}

support::Finished Qsndhost::shell(const std::string& command) {
  return support::run({{"sh", "-c", command, QSNDHOST}, {}, folder.path(), environment});
}

std::string Qsndhost::must(const std::vector<std::string>& arguments) {
  const auto finished = run(arguments);
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.err, "");
  return finished.out;
}

std::string Qsndhost::makeDocument(const std::string& name, std::uint16_t bits,
                                   std::uint16_t channels, std::size_t frames) {
  Wave wave;
  wave.bits = bits;
  wave.channels = channels;
  wave.rate = 8000;
  wave.data = noise(frames * channels * bits / 8, bits);
  return folder.write(name, storedDocument(wave.bytes()));
}

std::vector<std::string> Qsndhost::files() const {
  return namesIn(folder.path());
}

void expectFailure(const support::Finished& finished, int status, const std::string& line) {
  EXPECT_EQ(finished.status, status);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "qsndhost: " + line + "\n");
}
