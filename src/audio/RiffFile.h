#pragma once
// A small RIFF reader and writer with the chunk rules of the platform's multimedia file
// calls: create a chunk with its size left open, patch the size and pad to an even
// length on the way out; descend by searching a parent's chunks, skipping pad bytes.
// Reading never trusts a size: a chunk that claims more than its parent or the file
// holds is cut to what is there.
#include <cstdint>
#include <string>

#include "support/UniqueFd.h"

struct MMCKINFO {
  uint32_t ckid = 0;
  uint32_t cksize = 0;
  uint32_t fccType = 0;
  uint32_t dwDataOffset = 0;
  uint32_t dwFlags = 0;
};

constexpr uint32_t MMIO_DIRTY = 0x10000000;
constexpr uint32_t MMIO_FINDCHUNK = 0x10;
constexpr uint32_t MMIO_FINDRIFF = 0x20;
constexpr uint32_t MMIO_CREATERIFF = 0x20;

// Results of the chunk operations.
constexpr int32_t MMIOERR_CHUNKNOTFOUND = 265;
constexpr int32_t MMIOERR_CANNOTREAD = 259;
constexpr int32_t MMIOERR_CANNOTWRITE = 260;
constexpr int32_t MMIOERR_CANNOTSEEK = 261;

constexpr uint32_t mmioFOURCC(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) | (static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8) |
         (static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24);
}

// The chunk ids of a WAVE file.
constexpr uint32_t kWAVE = mmioFOURCC('W', 'A', 'V', 'E');
constexpr uint32_t kFmt = mmioFOURCC('f', 'm', 't', ' ');
constexpr uint32_t kFact = mmioFOURCC('f', 'a', 'c', 't');
constexpr uint32_t kData = mmioFOURCC('d', 'a', 't', 'a');

class RiffFile {
 public:
  RiffFile() = default;
  ~RiffFile();
  RiffFile(const RiffFile&) = delete;
  RiffFile& operator=(const RiffFile&) = delete;

  // Opens an existing file for reading, or creates (empties) one for reading and
  // writing. 0 or an errno value.
  int Open(const std::string& sPath, bool bCreate);
  // Closes; a file that was written is flushed to disk first. 0 or an errno value (the
  // file is closed in any case).
  int Close();
  bool IsOpen() const { return m_iFd.Valid(); }
  // The status query: 0 while the file is usable.
  int GetInfo() const;

  // New position, or -1.
  int64_t Seek(int64_t llOffset);
  int64_t Position() const { return m_llPos; }
  int64_t Size() const { return m_llSize; }
  // Bytes read (fewer at the end of the file), -1 on error.
  int64_t Read(void* p, int64_t n);
  // Bytes written, -1 on error (errno set). Goes through the "audio.write" fault point.
  int64_t Write(const void* p, int64_t n);

  // Writes a chunk header at the position (with fccType for MMIO_CREATERIFF) and stays
  // inside it. 0 or an MMIOERR code.
  int32_t CreateChunk(MMCKINFO& ck, uint32_t lFlags);
  // Finds the chunk (MMIO_FINDRIFF: a RIFF chunk of form ck.fccType; MMIO_FINDCHUNK: a
  // chunk of id ck.ckid; 0: the chunk at the position) between the position and the end
  // of pParent (or of the file), and moves to its data.
  int32_t Descend(MMCKINFO& ck, const MMCKINFO* pParent, uint32_t lFlags);
  // The size that the chunk's header states, before any cut to its parent or the file
  // (0 when it cannot be read). The position does not move.
  uint32_t DeclaredSize(const MMCKINFO& ck) const;
  // Leaves the chunk: a chunk created here gets its size patched and a pad byte when
  // odd; the position moves behind the chunk.
  int32_t Ascend(MMCKINFO& ck);

  // The format chunk of a WAVE file, up to llMax bytes of it, into pFormat: the bytes
  // read (0 when the file has no RIFF WAVE form or no format chunk), or a negative errno
  // value when the file cannot be opened or read. A look at a file, not an open of
  // audio: no fault point is asked.
  static int64_t ReadWaveFormat(const std::string& sPath, uint8_t* pFormat, int64_t llMax);

 private:
  int OpenFile(const std::string& sPath, bool bCreate);

  UniqueFd m_iFd;
  bool m_bWritten = false;
  int64_t m_llPos = 0;
  int64_t m_llSize = 0;
};
