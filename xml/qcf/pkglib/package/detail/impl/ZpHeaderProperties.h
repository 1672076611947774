#pragma once

#include <cstdint>
#include <string>

#include "package/detail/BasePkgHexStrings.h"
#include "package/detail/PkgPropertyMgr.h"
#include "package/source/ZipImpl.h"

namespace pkg::zip {

// What the properties of an entry say of its headers. They outrank the records when these are
// written.
template <class Context>
class ZpHeaderProperties {
public:
  using String = typename Context::String;

  // Sets date and time of `header` from the properties of the path that is `name`, as the header's
  // record has it. The time is taken only where there is a date.
  template <class Header>
  ZpHeaderProperties(PkgPropertyMgr<Context>* properties, const char* name, Header& header) {
    const String path = Context::fromUTF8(name);
    fTypeAndCreator = properties->getZipProperty(path, QCFPropertyZipTypeCreator, nullptr);
    if (!properties->hasOwnDateTime(path)) {
      const RecordDateTimes::DateTime* const recorded = properties->findRecordDateTime(name);
      if (recorded == nullptr) return;
      header.date = recorded->date;
      header.time = recorded->time;
      return;
    }
    const String date = properties->getZipProperty(path, QCFPropertyZipDate, nullptr);
    const String time = properties->getZipProperty(path, QCFPropertyZipTime, nullptr);
    if (date.empty()) return;
    header.date = decodeWord(date);
    header.time = decodeWord(time);
  }

  const String& typeAndCreator() const { return fTypeAndCreator; }

  static std::uint16_t decodeWord(const String& text) {
    unsigned short word = 0;
    return BasePkgHexStrings<Context>::getInstance()->hexStringToI(text, word);
  }

private:
  String fTypeAndCreator;
};

// Appends the block of a type-and-creator property.
template <class Context>
void appendTypeCreatorBlock(std::string& out, const typename Context::String& text) {
  FileTypeAndCreator_2705 value;
  unsigned long size = sizeof value;
  BasePkgHexStrings<Context>::getInstance()->decodeHexString(text, &value, size);
  const ExtraData_2705 block = ExtraData_2705(value).byteswap();
  out.append(reinterpret_cast<const char*>(&block), sizeof block);
}

template <class Record>
void appendRecord(std::string& out, const Record& record) {
  const Record onDisk = record.byteswap();
  out.append(reinterpret_cast<const char*>(&onDisk), sizeof onDisk);
}

template <class Context>
void writeAll(IPkgFSFileCommon* file, const std::string& bytes) {
  file->write(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace pkg::zip
