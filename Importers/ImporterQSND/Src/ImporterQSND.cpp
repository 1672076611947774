#include "ImporterQSND.h"

#include <cstring>
#include <string>

#include "QFL/Strings.h"
#include "qvacore/Localizer.h"

namespace ImporterQSND {
namespace {

constexpr std::int32_t kFileType = 0x51534E44;  // QSND
constexpr std::int32_t kFormatFlags = 0xE004;

void AddOneExtension(std::string& list, const char* extension) {
  list += extension;
  list.push_back('\0');
}

std::string GetSupportedExtensions() {
  std::string list;
  AddOneExtension(list, "qsnd");
  list.push_back('\0');
  return list;
}

std::string Localised(const char* keyAndDefault) {
  return QFL::MakeStdString(qvacore::config::Localizer::Get().GetString(keyAndDefault));
}

}  // namespace

ImporterQSND::ImporterQSND() : documentState(std::make_unique<SoundDocumentState>()) {}

// The document goes before the handler that reads from it.
ImporterQSND::~ImporterQSND() {
  documentState.reset();
}

std::int32_t ImporterQSND::Init(imImportInfoRec* info) {
  info->word48 = 0;
  info->word52 = 1;
  info->word72 = 1;
  return HostResultInitialised;
}

std::int32_t ImporterQSND::ShutDown() {
  return HostResultSuccess;
}

std::int32_t ImporterQSND::GetIndFormat(const QFL::ResourceCollection& /*resources*/,
                                        imStdParms* /*stdParms*/, int index,
                                        imIndFormatRec* format) {
  if (index != 0) return HostResultBadFormatIndex;
  format->fileType = kFileType;
  // The host's own texts are trusted to fit its fields.
  // NOLINTBEGIN(clang-analyzer-security.insecureAPI.strcpy)
  std::strcpy(
      format->name,
      Localised("$$$/MediaKiln/Importers/ImporterQSND/Name=Quillon Sound Document").c_str());
  std::strcpy(format->shortName,
              Localised("$$$/MediaKiln/Importers/ImporterQSND/ShortName=QSND").c_str());
  // NOLINTEND(clang-analyzer-security.insecureAPI.strcpy)
  const std::string extensions = GetSupportedExtensions();
  std::memcpy(format->extensions, extensions.data(), extensions.size());
  format->flags = kFormatFlags;
  return HostResultSuccess;
}

std::int32_t ImporterQSND::OnOpenFile8(void** fileRef, imFileOpenRec8* file) {
  documentState->filePath.assign(file->path, std::char_traits<char16_t>::length(file->path));
  OpenQSND();
  if (!documentState->isOpen) return HostResultCannotOpen;
  // A token, not an address: the host only tests it against null.
  *fileRef = reinterpret_cast<void*>(std::uintptr_t{1});
  return HostResultSuccess;
}

std::int32_t ImporterQSND::OnGetInfo8(imFileAccessRec8* /*access*/, imFileInfoRec8* info) {
  const SoundDocumentState& document = *documentState;
  const std::int32_t result = document.isOpen ? HostResultSuccess : HostResultCannotOpen;
  info->hasVideo = 0;
  info->hasAudio = 1;
  info->channelCount = document.channelCount;
  info->sampleRate = document.sampleRate;
  info->frameCount = document.frameCount;
  info->word194 = 0;
  // The stored format tag is never read: samples of four bytes are taken for floats, all others for
  // integers.
  const SampleKind kind =
      document.bytesPerSample == 4 ? SampleKind::FloatLittle : SampleKind::IntLittle;
  const std::uint32_t format =
      audioHandler.ConfigureSource(info->channelCount, document.bytesPerSample, info->frameCount,
                                   kind, &ImporterQSND::AudioHandlerCallback);
  info->sampleFormat = static_cast<std::int32_t>(format);
  return result;
}

std::int32_t ImporterQSND::OnImportAudio7(void* /*fileRef*/, imImportAudioRec7* audio) {
  if (!documentState->isOpen) return HostResultNoAudio;
  std::int64_t position = audio->position;
  const bool unconfigured = (audioHandler.readFlags & 1) != 0;
  if (unconfigured && position == 0) {
    audioHandler.nextFrame = 0;
    if (!SetStreamPosition(0)) return HostResultNoAudio;
  } else if (unconfigured || position < 0) {
    position = audioHandler.nextFrame;
  }
  return audioHandler.ServeAudio(position, audio->size, audio->buffers, this);
}

std::int32_t ImporterQSND::OnQuietFile(void** /*fileRef*/) {
  QuietQSND();
  return HostResultSuccess;
}

std::int32_t ImporterQSND::OnCloseFile(void** /*fileRef*/) {
  CloseQSND();
  return HostResultSuccess;
}

}  // namespace ImporterQSND
