#include "crash/Changes.h"

namespace crash {

namespace {

using Words = std::vector<std::string>;

const Words kNext = {"create", "--overwrite", "--type", "a/b", "a.pkg", "input"};
const Words kNextNew = {"create", "--overwrite", "--type", "a/b", "new.pkg", "input"};
const Words kMake = {"make", "in.wav", "out.qsnd"};
const Words kMakeDeflated = {"make", "--deflate", "in.wav", "out.qsnd"};
const Words kExport = {"export", "in.qsnd", "out.wav"};
const Words kExportHere = {"--no-isolate", "export", "in.qsnd", "out.wav"};
const Words kExportStretch = {"export", "--start", "1000",    "--frames",
                              "500",    "in.qsnd", "link.wav"};
const Words kExportMany = {"--quiet", "export", "--folder", "waves", "in.qsnd", "out.qsnd"};
const Words kExportManyAgain = {"export", "--folder", "waves", "in.qsnd", "out.qsnd"};
const Words kWaveformSVG = {"--timeout", "2",   "waveform", "in.qsnd", "out.svg",
                            "--width",   "200", "--height", "100"};
const Words kWaveform = {"--timeout", "2",   "waveform", "in.qsnd", "out.png",
                         "--width",   "200", "--height", "100"};
const Words kExtract = {"extract", "tree.pkg", "-C", "new/folder"};
const Words kExtractAgain = {"extract", "--overwrite", "tree.pkg", "-C", "new/folder"};
const Words kExtractSome = {"extract", "tree.pkg", "-C", "some", "one", "folder/below"};
const Words kExtractSomeAgain = {"extract", "--overwrite", "tree.pkg",    "-C",
                                 "some",    "one",         "folder/below"};
const Words kExtractOver = {"extract", "--overwrite", "tree.pkg", "-C", "there"};

const std::string kPiped = "what comes from a pipe";

Change variant(Change change, const std::string& input = {}) {
  change.isVariant = true;
  change.input = input;
  return change;
}

Words extracted(const std::string& folder) {
  Words names;
  for (const char* const name :
       {"mimetype", "one", "deep/er/file", "folder/below/input", "folder/text"})
    names.push_back(folder + "/" + name);
  return names;
}

}  // namespace

const std::vector<Change>& changes() {
  static const std::vector<Change> all = {
      {"add", QCFPKG, {"add", "a.pkg", "three=input"}, {"a.pkg"}, kNext, true},
      {"remove", QCFPKG, {"remove", "a.pkg", "two"}, {"a.pkg"}, kNext, false},
      {"compact", QCFPKG, {"--quiet", "compact", "a.pkg"}, {"a.pkg"}, kNext, false},
      {"type", QCFPKG, {"type", "a.pkg", "c/d"}, {"a.pkg"}, kNext, false},
      {"comment", QCFPKG, {"comment", "a.pkg", "words"}, {"a.pkg"}, kNext, false},
      {"prop", QCFPKG, {"prop", "set", "a.pkg", "two", "mac-type", "TEXT"}, {"a.pkg"}, kNext, true},
      {"create",
       QCFPKG,
       {"create", "--type", "a/b", "new.pkg", "one=in.wav", "folder"},
       {"new.pkg"},
       kNextNew,
       true},
      {"extract", QCFPKG, kExtract, extracted("new/folder"), kExtractAgain, true},
      {"extractOver", QCFPKG, kExtractOver, extracted("there"), kExtractOver, true},
      {"make", QSNDHOST, kMake, {"out.qsnd"}, kMake, false},
      {"makeDeflated", QSNDHOST, kMakeDeflated, {"out.qsnd"}, kMake, true},
      {"export", QSNDHOST, kExport, {"out.wav"}, kExport, true},
      {"waveform", QSNDHOST, kWaveform, {"out.png"}, kWaveform, true},
      {"addInPlace",
       QCFPKG,
       {"add", "--in-place", "a.pkg", "three=input", "two=in.wav"},
       {"a.pkg"},
       kNext,
       true,
       Place::InTheFile},
      {"removeInPlace",
       QCFPKG,
       {"remove", "--in-place", "a.pkg", "two"},
       {"a.pkg"},
       kNext,
       false,
       Place::InTheFile},
      {"commentInPlace",
       QCFPKG,
       {"comment", "--in-place", "a.pkg", "words"},
       {"a.pkg"},
       kNext,
       false,
       Place::InTheFile},
      variant({"addFromPipe", QCFPKG, {"add", "a.pkg", "three=-"}, {"a.pkg"}, kNext, true}, kPiped),
      variant({"createFromPipe",
               QCFPKG,
               {"create", "--type", "a/b", "new.pkg", "one=-"},
               {"new.pkg"},
               kNextNew,
               true},
              kPiped),
      variant({"addStored",
               QCFPKG,
               {"add", "--store", "a.pkg", "three=input"},
               {"a.pkg"},
               kNext,
               false}),
      variant({"createOver",
               QCFPKG,
               {"create", "--overwrite", "--store", "--type", "a/b", "a.pkg", "one=in.wav"},
               {"a.pkg"},
               kNext,
               false}),
      variant({"propModifiedThroughLink",
               QCFPKG,
               {"prop", "set", "link.pkg", "two", "modified", kModified},
               {"a.pkg"},
               kNext,
               false}),
      variant({"extractSome",
               QCFPKG,
               kExtractSome,
               {"some/one", "some/folder/below/input"},
               kExtractSomeAgain,
               true}),
      variant({"exportStretchThroughLink", QSNDHOST, kExportStretch, {"out.wav"}, kExport, true}),
      variant({"exportHere", QSNDHOST, kExportHere, {"out.wav"}, kExport, true}),
      variant({"exportMany",
               QSNDHOST,
               kExportMany,
               {"waves/in.wav", "waves/out.wav"},
               kExportManyAgain,
               true}),
      variant({"waveformSVG", QSNDHOST, kWaveformSVG, {"out.svg"}, kWaveformSVG, true})};
  return all;
}

std::vector<Change> changesWritten(Place place) {
  std::vector<Change> some;
  for (const Change& change : changes()) {
    if (change.place == place) some.push_back(change);
  }
  return some;
}

}  // namespace crash
