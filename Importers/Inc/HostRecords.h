#pragma once

#include <cstddef>
#include <cstdint>

// The host's records: its binary interface, packed, at offsets that the host has fixed. Only the
// fields that the plug-in reads or writes have names. Offsets behind a pointer follow the width of
// a pointer.

struct imStdParms;        // opaque: kept and passed along, never looked into
struct imFileAccessRec8;  // opaque: reaches a file request, never looked into

#pragma pack(push, 1)

// Selector 0.
struct imImportInfoRec {
  std::uint8_t notUsed0[48];
  std::int32_t word48;
  std::int32_t word52;
  std::uint8_t notUsed56[16];
  std::int32_t word72;
};

// Selector 14. Texts are NUL-terminated; the extension list is a run of such texts with one more
// NUL at its end.
struct imIndFormatRec {
  std::int32_t fileType;  // four characters, the first in the most significant byte
  std::int32_t flags;
  std::uint8_t notUsed8[4];
  char name[256];
  char shortName[32];
  char extensions[256];
};

// Selector 39.
struct imFileOpenRec8 {
  std::uint8_t notUsed0[12];
  const char16_t* path;  // NUL-terminated UTF-16, the host's
  std::uint8_t notUsed20[16];
  void* privateData;  // the importer instance, or null
};

// Selector 37.
struct imFileInfoRec8 {
  std::uint8_t hasVideo;
  std::uint8_t hasAudio;
  std::uint8_t notUsed2[172];
  std::uint32_t channelCount;
  float sampleRate;  // hertz
  std::int32_t sampleFormat;
  std::int64_t frameCount;
  std::int32_t word194;
  void* privateData;  // the importer instance, or null
};

// Selector 25.
struct imImportAudioRec7 {
  std::int64_t position;  // in frames; a negative one goes on from the last read
  std::uint32_t size;     // in frames
  float** buffers;        // one a channel, each with room for `size` floats; the host's
  void* privateData;      // the importer instance
};

#pragma pack(pop)

static_assert(offsetof(imImportInfoRec, word48) == 48);
static_assert(offsetof(imImportInfoRec, word52) == 52);
static_assert(offsetof(imImportInfoRec, word72) == 72);
static_assert(sizeof(imImportInfoRec) == 76);

static_assert(offsetof(imIndFormatRec, fileType) == 0);
static_assert(offsetof(imIndFormatRec, flags) == 4);
static_assert(offsetof(imIndFormatRec, name) == 12);
static_assert(offsetof(imIndFormatRec, shortName) == 268);
static_assert(offsetof(imIndFormatRec, extensions) == 300);
static_assert(sizeof(imIndFormatRec) == 556);

static_assert(offsetof(imFileOpenRec8, path) == 12);
static_assert(offsetof(imFileOpenRec8, privateData) == 28 + sizeof(void*));
static_assert(sizeof(imFileOpenRec8) == 28 + 2 * sizeof(void*));

static_assert(offsetof(imFileInfoRec8, hasVideo) == 0);
static_assert(offsetof(imFileInfoRec8, hasAudio) == 1);
static_assert(offsetof(imFileInfoRec8, channelCount) == 174);
static_assert(offsetof(imFileInfoRec8, sampleRate) == 178);
static_assert(offsetof(imFileInfoRec8, sampleFormat) == 182);
static_assert(offsetof(imFileInfoRec8, frameCount) == 186);
static_assert(offsetof(imFileInfoRec8, word194) == 194);
static_assert(offsetof(imFileInfoRec8, privateData) == 198);
static_assert(sizeof(imFileInfoRec8) == 198 + sizeof(void*));

static_assert(offsetof(imImportAudioRec7, position) == 0);
static_assert(offsetof(imImportAudioRec7, size) == 8);
static_assert(offsetof(imImportAudioRec7, buffers) == 12);
static_assert(offsetof(imImportAudioRec7, privateData) == 12 + sizeof(void*));
static_assert(sizeof(imImportAudioRec7) == 12 + 2 * sizeof(void*));
static_assert(sizeof(float) == 4);
