#pragma once

#include <cstddef>
#include <cstdint>

// The little of the 64-bit Mach-O format that a bundle is loaded by.
namespace macho {

constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
constexpr std::uint32_t kCpuX86_64 = 0x01000007;
constexpr std::uint32_t kBundle = 8;

constexpr std::uint32_t kCommandSymbols = 0x2;
constexpr std::uint32_t kCommandSegment64 = 0x19;
constexpr std::uint32_t kCommandDyldInfoOnly = 0x80000022;

constexpr std::uint32_t kSectionTypeMask = 0xFF;
constexpr std::uint32_t kSectionInitialisers = 9;
constexpr std::uint8_t kSymbolExternalDefined = 0x0F;  // N_SECT | N_EXT

struct Header {
  std::uint32_t magic, cpuType, cpuSubtype, fileType, commandCount, commandBytes, flags, reserved;
};

struct Command {
  std::uint32_t kind, bytes;
};

struct Segment {
  Command command;
  char name[16];
  std::uint64_t address, size, fileOffset, fileSize;
  std::uint32_t maximalProtection, protection, sectionCount, flags;
};

struct Section {
  char name[16], segmentName[16];
  std::uint64_t address, size;
  std::uint32_t fileOffset, alignment, relocationOffset, relocationCount, flags, reserved[3];
};

struct Table {
  std::uint32_t offset, bytes;
};

struct DyldInfo {
  Command command;
  Table rebase, bind, weakBind, lazyBind, exports;
};

struct SymbolTable {
  Command command;
  std::uint32_t symbolOffset, symbolCount, textOffset, textBytes;
};

struct Symbol {
  std::uint32_t name;
  std::uint8_t type, section;
  std::uint16_t description;
  std::uint64_t value;
};

static_assert(sizeof(Header) == 32 && sizeof(Segment) == 72 && sizeof(Section) == 80);
static_assert(sizeof(DyldInfo) == 48 && sizeof(SymbolTable) == 24 && sizeof(Symbol) == 16);

}  // namespace macho
