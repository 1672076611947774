#pragma once

#include <cstdint>
#include <memory>

#include "AudioHandler.h"
#include "HxImportModule.h"
#include "SoundDocument.h"

namespace ImporterQSND {

// Imports one sound document: describes the format, opens a file, tells its layout, serves its
// audio. An instance serves one file and belongs to one host call at a time.
class ImporterQSND : public HxImportModule<ImporterQSND> {
public:
  // A closed document.
  ImporterQSND();
  // Releases the document without closing its stream and package in so many words.
  ~ImporterQSND() override;
  ImporterQSND(const ImporterQSND&) = delete;
  ImporterQSND& operator=(const ImporterQSND&) = delete;

  static std::int32_t Init(imImportInfoRec* info);
  static std::int32_t ShutDown();
  // Describes format `index`: 0 is the only one, any other leaves `format` alone and gives 301.
  static std::int32_t GetIndFormat(const QFL::ResourceCollection& resources, imStdParms* stdParms,
                                   int index, imIndFormatRec* format);

  // Opens the document at the path in `file` and marks `fileRef`. Returns 0, or 31 with `fileRef`
  // left alone.
  std::int32_t OnOpenFile8(void** fileRef, imFileOpenRec8* file);
  // Tells the layout and makes the audio ready. The document must have been opened before. Returns
  // 0, or 31 when it is closed now.
  std::int32_t OnGetInfo8(imFileAccessRec8* access, imFileInfoRec8* info);
  // Serves a stretch of audio. Returns 0; 1 when the document is closed or the position beyond its
  // end; 38 when nothing could be read; -1 when reading failed.
  std::int32_t OnImportAudio7(void* fileRef, imImportAudioRec7* audio);
  // Closes the document; the path and the handler's settings stay, and the document can be opened
  // again.
  std::int32_t OnQuietFile(void** fileRef);
  // Closes the document and forgets the path.
  std::int32_t OnCloseFile(void** fileRef);

  // Opens the document at documentState->filePath. The outcome is documentState->isOpen; no reason
  // is kept.
  void OpenQSND();
  // Closes what is open. A failure to close is not told and leaves what it interrupted.
  void QuietQSND();
  void CloseQSND();
  // Moves the open stream to a frame, zero-based. False when that threw.
  bool SetStreamPosition(int frame);
  // Reads at most `frames` frames at the stream's position to `buffer`, interleaved as stored.
  // Returns how many whole ones came, or -1 when reading threw.
  int StreamAudioFromQSND(unsigned int frames, char* buffer);
  // Both of the above; the contract is AudioReadCallback's. Returns 0, or -1 with `framesRead` 0.
  int ReadAudioData(AudioHandler& handler, long long position, unsigned int frames, char* buffer,
                    int& framesRead);
  // ReadAudioData on the ImporterQSND at `context`.
  static int AudioHandlerCallback(void* context, AudioHandler& handler, long long position,
                                  unsigned int frames, char* buffer, int& framesRead);

private:
  std::unique_ptr<SoundDocumentState> documentState;
  AudioHandler audioHandler;
};

}  // namespace ImporterQSND
