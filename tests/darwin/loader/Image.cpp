#include "Image.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <sys/mman.h>

// LLVM's unwinder learns of one function of generated code.
extern "C" void __unw_add_dynamic_fde(std::uintptr_t fde);

namespace {

// Reads the byte code of a rebase or bind table.
class Bytecode {
public:
  Bytecode(const char* begin, std::size_t bytes)
      : fAt(reinterpret_cast<const std::uint8_t*>(begin)), fEnd(fAt + bytes) {}
  bool atEnd() const { return fAt == fEnd; }
  std::uint8_t byte() {
    if (atEnd()) throw std::runtime_error("a table ends within an instruction");
    return *fAt++;
  }
  std::uint64_t number() {
    std::uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::uint8_t next = byte();
      value |= std::uint64_t{next & 0x7Fu} << shift;
      if ((next & 0x80) == 0) return value;
    }
  }
  std::string text() {
    std::string value;
    while (const std::uint8_t next = byte())
      value += static_cast<char>(next);
    return value;
  }

private:
  const std::uint8_t* fAt;
  const std::uint8_t* fEnd;
};

constexpr std::uint64_t kWord = sizeof(std::uint64_t);

[[noreturn]] void unknownInstruction(const char* table, unsigned opcode) {
  throw std::runtime_error(std::string(table) + " has an unknown instruction " +
                           std::to_string(opcode));
}

}  // namespace

Image::Image(const std::string& path, const Resolver& resolver) {
  std::ifstream file(path, std::ios::binary);
  fFile.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (fFile.size() < sizeof(macho::Header)) throw std::runtime_error("cannot read " + path);
  readCommands();
  mapSegments();
  rebase();
  bind(fDyldInfo->bind, resolver);
  bind(fDyldInfo->lazyBind, resolver);
  protect();
}

void Image::readCommands() {
  const auto* header = at<macho::Header>(0);
  if (header->magic != macho::kMagic64 || header->cpuType != macho::kCpuX86_64 ||
      header->fileType != macho::kBundle) {
    throw std::runtime_error("not a 64-bit bundle");
  }
  std::uint64_t offset = sizeof(macho::Header);
  for (std::uint32_t n = 0; n < header->commandCount; ++n) {
    const auto* command = at<macho::Command>(offset);
    if (command->kind == macho::kCommandSegment64) fSegments.push_back(at<macho::Segment>(offset));
    if (command->kind == macho::kCommandDyldInfoOnly) fDyldInfo = at<macho::DyldInfo>(offset);
    if (command->kind == macho::kCommandSymbols) fSymbols = at<macho::SymbolTable>(offset);
    offset += command->bytes;
  }
  if (fSegments.empty() || fDyldInfo == nullptr || fSymbols == nullptr) {
    throw std::runtime_error("not all of the load commands are there");
  }
  if (fDyldInfo->weakBind.bytes != 0) throw std::runtime_error("weak symbols are bound");
}

void Image::mapSegments() {
  const macho::Segment& last = *fSegments.back();
  void* const memory = mmap(nullptr, last.address + last.size, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory for the image");
  fBase = static_cast<char*>(memory);
  for (const macho::Segment* segment : fSegments) {
    std::memcpy(fBase + segment->address, fFile.data() + segment->fileOffset, segment->fileSize);
  }
}

std::uint64_t& Image::word(std::size_t segment, std::uint64_t offset) const {
  const macho::Segment& target = *fSegments.at(segment);
  if (offset > target.size - kWord) throw std::runtime_error("an address outside its segment");
  return *reinterpret_cast<std::uint64_t*>(fBase + target.address + offset);
}

void Image::rebase() {
  Bytecode code(fFile.data() + fDyldInfo->rebase.offset, fDyldInfo->rebase.bytes);
  std::size_t segment = 0;
  std::uint64_t offset = 0;
  const auto slide = [&](std::uint64_t count, std::uint64_t skip) {
    for (; count > 0; --count, offset += kWord + skip)
      word(segment, offset) += reinterpret_cast<std::uint64_t>(fBase);
  };
  while (!code.atEnd()) {
    const std::uint8_t instruction = code.byte();
    const unsigned immediate = instruction & 0x0F;
    switch (instruction >> 4) {
      case 0:  // done
        return;
      case 1:  // the kind of value: pointers only
        break;
      case 2:
        segment = immediate;
        offset = code.number();
        break;
      case 3:
        offset += code.number();
        break;
      case 4:
        offset += immediate * kWord;
        break;
      case 5:
        slide(immediate, 0);
        break;
      case 6:
        slide(code.number(), 0);
        break;
      case 7:
        slide(1, code.number());
        break;
      case 8: {
        const std::uint64_t count = code.number();
        slide(count, code.number());
        break;
      }
      default:
        unknownInstruction("the rebase table", instruction);
    }
  }
}

void Image::bind(macho::Table table, const Resolver& resolver) {
  Bytecode code(fFile.data() + table.offset, table.bytes);
  std::size_t segment = 0;
  std::uint64_t offset = 0;
  std::uint64_t addend = 0;
  void* address = nullptr;
  const auto set = [&](std::uint64_t count, std::uint64_t skip) {
    for (; count > 0; --count, offset += kWord + skip)
      word(segment, offset) = reinterpret_cast<std::uint64_t>(address) + addend;
  };
  while (!code.atEnd()) {
    const std::uint8_t instruction = code.byte();
    const unsigned immediate = instruction & 0x0F;
    switch (instruction >> 4) {
      case 0:  // done; in the lazy table, done with one symbol
      case 1:  // the library: all of them are one here
      case 3:
      case 5:  // the kind of value: pointers only
        break;
      case 2:
        code.number();
        break;
      case 4: {
        const std::string name = code.text();
        address = resolver(name.substr(name.compare(0, 1, "_") == 0 ? 1 : 0));
        if (address == nullptr) throw std::runtime_error("nothing to bind " + name + " to");
        break;
      }
      case 6:
        addend = code.number();
        break;
      case 7:
        segment = immediate;
        offset = code.number();
        break;
      case 8:
        offset += code.number();
        break;
      case 9:
        set(1, 0);
        break;
      case 10:
        set(1, code.number());
        break;
      case 11:
        set(1, immediate * kWord);
        break;
      case 12: {
        const std::uint64_t count = code.number();
        set(count, code.number());
        break;
      }
      default:
        unknownInstruction("a bind table", instruction);
    }
  }
}

void Image::protect() const {
  for (const macho::Segment* segment : fSegments) {
    // The three bits mean the same there and here.
    if (mprotect(fBase + segment->address, segment->size, static_cast<int>(segment->protection)) !=
        0)
      throw std::runtime_error("cannot protect a segment");
  }
}

template <class Visit>
void Image::eachSection(Visit visit) const {
  for (const macho::Segment* segment : fSegments) {
    const auto* section = reinterpret_cast<const macho::Section*>(segment + 1);
    for (std::uint32_t n = 0; n < segment->sectionCount; ++n)
      visit(section[n]);
  }
}

void Image::registerUnwindTables() const {
  eachSection([this](const macho::Section& section) {
    if (std::strncmp(section.name, "__eh_frame", sizeof section.name) != 0) return;
    const char* at = fBase + section.address;
    const char* const end = at + section.size;
    while (at < end) {
      std::uint32_t words[2];  // the length of what follows it, and what kind that is
      std::memcpy(words, at, sizeof words);
      if (words[0] == 0) return;
      constexpr std::uint32_t kCommonInformation = 0;
      if (words[1] != kCommonInformation)
        __unw_add_dynamic_fde(reinterpret_cast<std::uintptr_t>(at));
      at += sizeof words[0] + words[0];
    }
  });
}

void Image::runInitialisers() const {
  eachSection([this](const macho::Section& section) {
    if ((section.flags & macho::kSectionTypeMask) != macho::kSectionInitialisers) return;
    using Initialiser = void (*)(int, char**, char**);
    auto* const functions = reinterpret_cast<Initialiser*>(fBase + section.address);
    for (std::uint64_t n = 0; n < section.size / kWord; ++n)
      functions[n](0, nullptr, nullptr);
  });
}

void* Image::symbol(const std::string& name) const {
  const auto* symbols = at<macho::Symbol>(fSymbols->symbolOffset);
  for (std::uint32_t n = 0; n < fSymbols->symbolCount; ++n) {
    const char* const text = fFile.data() + fSymbols->textOffset + symbols[n].name;
    if (symbols[n].type == macho::kSymbolExternalDefined && text == "_" + name)
      return fBase + symbols[n].value;
  }
  throw std::runtime_error("the bundle has no " + name);
}
