#pragma once

#include <cstdint>
#include <cstring>
#include <exception>
#include <ios>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>

#include "HostRecords.h"
#include "QFL/Alert.h"
#include "QFL/Module.h"

// The numbers that go to the host.
enum HostResult : std::int32_t {
  HostResultSuccess = 0,
  HostResultNoAudio = 1,
  HostResultUnsupported = 3,
  HostResult5 = 5,
  HostResultCannotOpen = 31,
  HostResultNothingRead = 38,
  HostResult99 = 99,
  HostResult100 = 100,
  HostResult101 = 101,
  HostResultBadFormatIndex = 301,
  HostResultInitialised = 400
};

// Turns the host's numbered selectors into calls on an importer class T, which derives from
// HxImportModule<T>. An instance of T serves one file; the host keeps it in a record's private data
// and passes it back.
template <class T>
class HxImportModule {
public:
  virtual ~HxImportModule() = default;
  // Keeps the host's parameters, which stay the host's.
  virtual void SetStdParms(const imStdParms* stdParms) { fStdParms = stdParms; }

  // Serves one selector; the parameters are the selector's. Returns the number for the host. Throws
  // only what the alert service asks to be thrown on.
  static std::int32_t ImportEntry(const QFL::ResourceCollection& resources, int selector,
                                  imStdParms* stdParms, void* param1, void* param2);

  // A new instance, owned by the caller; null when it could not be made.
  static T* CreateImportModuleInstance(imStdParms* stdParms);

protected:
  HxImportModule() = default;

private:
  static std::int32_t CloseFile(T* instance, void** fileRef);
  static std::int32_t GetInfo8(imStdParms* stdParms, imFileAccessRec8* access,
                               imFileInfoRec8* info);
  static std::int32_t OpenFile8(imStdParms* stdParms, void** fileRef, imFileOpenRec8* file);
  static std::string DescribeFailedCreation(const std::exception& exception);
  static std::string DescribeFailure(const char* what, const void* instance, int selector,
                                     const std::exception* exception);

  // Stands for a text that there is no memory for; short enough to need none itself.
  static constexpr const char* kNoMemoryToTell = "out of memory\n";

  const imStdParms* fStdParms = nullptr;
};

template <class T>
std::int32_t HxImportModule<T>::ImportEntry(const QFL::ResourceCollection& resources, int selector,
                                            imStdParms* stdParms, void* param1, void* param2) {
  const auto firstWordIsZero = [](const void* param) {
    std::uint64_t word;
    std::memcpy(&word, param, sizeof(word));
    return word == 0;
  };
  T* instance = nullptr;
  try {
    switch (selector) {
      case 0:
        return T::Init(static_cast<imImportInfoRec*>(param1));
      case 1:
        return T::ShutDown();
      case 8:
        instance = static_cast<T*>(param2);
        return instance->OnQuietFile(static_cast<void**>(param1));
      case 9:
        instance = static_cast<T*>(param2);
        return CloseFile(instance, static_cast<void**>(param1));
      case 14:
        // The index travels as the value of the pointer.
        return T::GetIndFormat(resources, stdParms,
                               static_cast<int>(reinterpret_cast<std::intptr_t>(param1)),
                               static_cast<imIndFormatRec*>(param2));
      case 25: {
        auto* const audio = static_cast<imImportAudioRec7*>(param2);
        instance = static_cast<T*>(audio->privateData);
        return instance->OnImportAudio7(param1, audio);
      }
      case 27:
        return firstWordIsZero(param2) ? HostResult5 : HostResult99;
      case 28:
        return HostResult100;
      case 36:
        return HostResult101;
      case 37:
        return GetInfo8(stdParms, static_cast<imFileAccessRec8*>(param1),
                        static_cast<imFileInfoRec8*>(param2));
      case 39:
        return OpenFile8(stdParms, static_cast<void**>(param1),
                         static_cast<imFileOpenRec8*>(param2));
      case 46:
      case 56:
        return firstWordIsZero(param1) ? HostResult5 : HostResultUnsupported;
      case 47:
        return firstWordIsZero(param2) ? HostResult5 : HostResultUnsupported;
      default:
        return HostResultUnsupported;
    }
  } catch (const std::exception& exception) {
    static bool sDisabled = false;
    if (!sDisabled && QFL::ThrowAfterUnhandledExceptionAlert(
                          sDisabled, DescribeFailure(" Threw an EXCEPTION during ", instance,
                                                     selector, &exception))) {
      throw;
    }
  } catch (...) {
    static bool sDisabled = false;
    if (!sDisabled && QFL::ThrowAfterUnhandledExceptionAlert(
                          sDisabled, DescribeFailure(" Threw an unknown EXCEPTION during ",
                                                     instance, selector, nullptr))) {
      throw;
    }
  }
  return HostResultUnsupported;
}

template <class T>
T* HxImportModule<T>::CreateImportModuleInstance(imStdParms* stdParms) {
  try {
    auto instance = std::make_unique<T>();
    instance->SetStdParms(stdParms);
    return instance.release();
  } catch (const std::exception& exception) {
    static bool sDisabled = false;
    if (sDisabled) return nullptr;
    if (QFL::ThrowAfterUnhandledExceptionAlert(sDisabled, DescribeFailedCreation(exception))) throw;
    return nullptr;
  }
}

template <class T>
std::string HxImportModule<T>::DescribeFailedCreation(const std::exception& exception) try {
  std::ostringstream text;
  text << "<plugin.HxImportModule> An exception occured creating ImportModule " << typeid(T).name()
       << " what() returned " << exception.what() << QFL::ENDL;
  return text.str();
} catch (const std::exception&) {
  return kNoMemoryToTell;
}

template <class T>
std::int32_t HxImportModule<T>::CloseFile(T* instance, void** fileRef) {
  if (instance == nullptr) return HostResultUnsupported;
  const std::int32_t result = instance->OnCloseFile(fileRef);
  delete instance;
  return result;
}

// A failure leaves a new instance with the host, which has its pointer and will close it.
template <class T>
std::int32_t HxImportModule<T>::GetInfo8(imStdParms* stdParms, imFileAccessRec8* access,
                                         imFileInfoRec8* info) {
  if (info->privateData != nullptr) {
    return static_cast<T*>(info->privateData)->OnGetInfo8(access, info);
  }
  T* const instance = CreateImportModuleInstance(stdParms);
  const std::int32_t result =
      instance != nullptr ? instance->OnGetInfo8(access, info) : std::int32_t{HostResult99};
  info->privateData = instance;
  return result;
}

// A failure takes a new instance back: unlike a request for information, a failed open leaves the
// host nothing to close.
template <class T>
std::int32_t HxImportModule<T>::OpenFile8(imStdParms* stdParms, void** fileRef,
                                          imFileOpenRec8* file) {
  if (file->privateData != nullptr) {
    return static_cast<T*>(file->privateData)->OnOpenFile8(fileRef, file);
  }
  T* instance = CreateImportModuleInstance(stdParms);
  std::int32_t result = HostResult99;
  if (instance != nullptr) {
    result = instance->OnOpenFile8(fileRef, file);
    if (result != HostResultSuccess) {
      delete instance;
      instance = nullptr;
    }
  }
  file->privateData = instance;
  return result;
}

// One line for the alert. Only the low 32 bits of the instance's address are told, whatever the
// width of a pointer.
template <class T>
std::string HxImportModule<T>::DescribeFailure(const char* what, const void* instance, int selector,
                                               const std::exception* exception) try {
  const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(instance));
  std::ostringstream text;
  text << "plugin.HxImportModule "
       << " importmod"
       << ":"
       << "0x" << std::hex << address << std::dec << what << " selector"
       << ":" << selector;
  if (exception != nullptr) text << ". what() returned " << exception->what();
  text << QFL::ENDL;
  return text.str();
} catch (const std::exception&) {
  return kNoMemoryToTell;
}
