#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MachO.h"

// A 64-bit Mach-O bundle in this process. Good for a smoke test of a bundle that this project has
// just built: it trusts the file. Its code stays mapped to the end of the process. Every failure
// raises std::runtime_error.
class Image {
public:
  // The address for a name of the bundle's platform, its leading underscore taken off; null where
  // there is none.
  using Resolver = std::function<void*(const std::string&)>;

  // Maps and binds; runs nothing yet.
  Image(const std::string& path, const Resolver& resolver);

  // Lets exceptions pass through the bundle's code, as far as its __eh_frame section tells how; the
  // platform's compact tables are not read.
  void registerUnwindTables() const;
  void runInitialisers() const;
  // The address of an exported name, without its leading underscore.
  void* symbol(const std::string& name) const;

private:
  template <class T>
  const T* at(std::uint64_t offset) const {
    return reinterpret_cast<const T*>(fFile.data() + offset);
  }
  // Calls `visit` with each section.
  template <class Visit>
  void eachSection(Visit visit) const;
  void readCommands();
  void mapSegments();
  void rebase();
  void bind(macho::Table table, const Resolver& resolver);
  void protect() const;
  std::uint64_t& word(std::size_t segment, std::uint64_t offset) const;

  std::vector<char> fFile;
  char* fBase = nullptr;
  std::vector<const macho::Segment*> fSegments;
  const macho::DyldInfo* fDyldInfo = nullptr;
  const macho::SymbolTable* fSymbols = nullptr;
};
