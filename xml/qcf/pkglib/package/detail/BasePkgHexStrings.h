#pragma once

#include <atomic>

#include "package/detail/AppContext.h"
#include "package/detail/PkgMutex.h"

namespace pkg {

// Binary values as text: two upper-case hexadecimal digits a byte, the high nibble first, bytes in
// memory order. Bad text is not reported; see source/HexCodec.h for what it gives.
template <class Context = AppContext>
class QCF_API IPkgHexStrings {
public:
  using String = typename Context::String;

  virtual String encodeHexString(const void* data, unsigned long size) = 0;
  // Returns how many bytes the text holds. Decodes at most `size` of them into `data`, unless that
  // is null, and sets `size` to the count decoded.
  virtual unsigned long decodeHexString(const String& text, void* data, unsigned long& size) = 0;

  virtual String iToHexString(char value) = 0;
  virtual String iToHexString(unsigned char value) = 0;
  virtual String iToHexString(short value) = 0;
  virtual String iToHexString(unsigned short value) = 0;
  virtual String iToHexString(int value) = 0;
  virtual String iToHexString(unsigned int value) = 0;
  virtual String iToHexString(long long value) = 0;
  virtual String iToHexString(unsigned long long value) = 0;

  // Fills `value`, the bytes that the text doesn't reach with 0, and returns it.
  virtual char& hexStringToI(const String& text, char& value) = 0;
  virtual unsigned char& hexStringToI(const String& text, unsigned char& value) = 0;
  virtual short& hexStringToI(const String& text, short& value) = 0;
  virtual unsigned short& hexStringToI(const String& text, unsigned short& value) = 0;
  virtual int& hexStringToI(const String& text, int& value) = 0;
  virtual unsigned int& hexStringToI(const String& text, unsigned int& value) = 0;
  virtual long long& hexStringToI(const String& text, long long& value) = 0;
  virtual unsigned long long& hexStringToI(const String& text, unsigned long long& value) = 0;

  virtual ~IPkgHexStrings() = default;
};

// The one implementation. Without state: its operations may run on any thread.
template <class Context = AppContext>
class QCF_API BasePkgHexStrings : public IPkgHexStrings<Context> {
public:
  using String = typename Context::String;

  // The shared instance, which lives to the end of the process.
  static BasePkgHexStrings* getInstance();

  String encodeHexString(const void* data, unsigned long size) override;
  unsigned long decodeHexString(const String& text, void* data, unsigned long& size) override;

  String iToHexString(char value) override { return encoded(value); }
  String iToHexString(unsigned char value) override { return encoded(value); }
  String iToHexString(short value) override { return encoded(value); }
  String iToHexString(unsigned short value) override { return encoded(value); }
  String iToHexString(int value) override { return encoded(value); }
  String iToHexString(unsigned int value) override { return encoded(value); }
  String iToHexString(long long value) override { return encoded(value); }
  String iToHexString(unsigned long long value) override { return encoded(value); }

  char& hexStringToI(const String& text, char& value) override { return decoded(text, value); }
  unsigned char& hexStringToI(const String& text, unsigned char& value) override {
    return decoded(text, value);
  }
  short& hexStringToI(const String& text, short& value) override { return decoded(text, value); }
  unsigned short& hexStringToI(const String& text, unsigned short& value) override {
    return decoded(text, value);
  }
  int& hexStringToI(const String& text, int& value) override { return decoded(text, value); }
  unsigned int& hexStringToI(const String& text, unsigned int& value) override {
    return decoded(text, value);
  }
  long long& hexStringToI(const String& text, long long& value) override {
    return decoded(text, value);
  }
  unsigned long long& hexStringToI(const String& text, unsigned long long& value) override {
    return decoded(text, value);
  }

  ~BasePkgHexStrings() override;

private:
  BasePkgHexStrings() = default;

  template <class Number>
  String encoded(Number value);
  template <class Number>
  Number& decoded(const String& text, Number& value);

  static std::atomic<BasePkgHexStrings*> fInstance;
  static PkgMutualExclusion fMutex;
};

extern template class BasePkgHexStrings<AppContext>;

}  // namespace pkg
