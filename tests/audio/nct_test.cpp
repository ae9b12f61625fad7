// The compressed file classes (CAudioNCT, and CAudioWMA where they share a path): the
// format face, reads of files that ffmpeg wrote, direct and indirect writes, their traces
// and failures, and the length of any audio file.
#include <gtest/gtest.h>

#include <strings.h>

#include <filesystem>

#include "audio/AudioFormatHelpers.h"
#include "audio/CodecTestUtil.h"
#include "audio/GetAudioLengthSecs.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"

namespace fs = std::filesystem;
using namespace codectest;

namespace {

class WarningSink : public IAudioFileEventSink {
 public:
  void NonFatalError(const CNVErr& o) override { aWarnings.push_back(o); }
  std::vector<CNVErr> aWarnings;
};

class NctTest : public CopierRootTest {
 protected:
  void SetUp() override {
    CopierRootTest::SetUp();
    InstallPrx();
  }
  void TearDown() override {
    AppGlobal::SetDebugMode(0);
    CopierRootTest::TearDown();
  }
  // A new object of the class for the type, set to a format: MP2, MP3, OGG and WAV (of
  // the compressed class) by their values, WMA by its profile number (iKbps).
  std::shared_ptr<IAudioFile> Make(int iType, int iRate, int iKbps, int iCh, int iTag, bool bIndirect) {
    std::shared_ptr<IAudioFormat> o = iType == FormatWMA ? ChooseAudioClass(iType) : std::make_shared<CAudioNCT>();
    if (auto w = std::dynamic_pointer_cast<CAudioWMA>(o)) {
      w->SetProfileNum(iKbps);
      w->SetWriteIndirect(bIndirect);
    } else if (auto n = std::dynamic_pointer_cast<CAudioNCT>(o)) {
      n->SetFileFormat(iType, iRate, iKbps, iCh, iTag);
      n->SetWriteIndirect(bIndirect);
    }
    auto f = std::dynamic_pointer_cast<IAudioFile>(o);
    f->SetMemFormat(GetMemFormat());
    return f;
  }
};

// ------------------------------------------------------------------ format face

TEST_F(NctTest, ChooseAudioClassAndIndirectDefaults) {
  for (auto [iType, bWma, bIndirect] : {std::tuple{FormatMP3, false, true},
                                        {FormatMP2, false, false},
                                        {FormatOGG, false, false},
                                        {FormatWMA, true, true}}) {
    SCOPED_TRACE(iType);
    auto o = ChooseAudioClass(iType);
    auto w = std::dynamic_pointer_cast<CAudioWMA>(o);
    auto n = std::dynamic_pointer_cast<CAudioNCT>(o);
    ASSERT_TRUE(bWma ? !!w : !!n);
    EXPECT_EQ(o->FormatType(), iType);
    EXPECT_EQ(bWma ? w->WriteIndirect() : n->WriteIndirect(), bIndirect);
  }
}

TEST_F(NctTest, DataSizeDescriptionAndSameFormat) {
  struct Case {
    int type, rate, kbps, ch, tag;
    float secs;
    double size;
    const char* text;
  } cases[] = {{FormatWAV, 44100, 0, 2, 17, 1.0f, 44100.0, "44,100Hz; Stereo IMA ADPCM "},
               {FormatMP3, 44100, 128, 2, 17, 1.0f, 16384.0, "44,100Hz; Stereo; 128 kbps"},
               {FormatWAV, 22050, 0, 1, 1, 2.0f, 88200.0, "22,050Hz; Mono PCM "},
               {FormatOGG, 44100, 96, 2, 17, 2.0f, 24000.0, "44,100Hz; Stereo; 96 kbps"},
               {FormatMP2, 48000, 192, 1, 17, 1.0f, 24000.0, "48,000Hz; Mono; 192 kbps"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    CAudioNCT o;
    o.SetFileFormat(c.type, c.rate, c.kbps, c.ch, c.tag);
    EXPECT_FALSE(o.Initialised());
    EXPECT_EQ(o.DataSize(c.secs), c.size);  // Ogg: asks the component, initialised first
    EXPECT_EQ(o.Description(), c.text);
  }
  // What counts in a comparison: type, rate, channels, and the tag (WAV) or bit rate.
  struct Same {
    int a[4], b[4];  // type, kbps, channels, tag
    bool same;
  } sames[] = {{{FormatMP3, 128, 2, 17}, {FormatMP3, 128, 2, 1}, true},
               {{FormatMP3, 128, 2, 17}, {FormatMP3, 64, 2, 17}, false},
               {{FormatMP3, 128, 2, 17}, {FormatOGG, 128, 2, 17}, false},
               {{FormatMP3, 128, 2, 17}, {FormatMP3, 128, 1, 17}, false},
               {{FormatWAV, 10, 1, 17}, {FormatWAV, 99, 1, 17}, true},
               {{FormatWAV, 10, 1, 17}, {FormatWAV, 10, 1, 1}, false}};
  for (const auto& c : sames) {
    CAudioNCT a, b;
    a.SetFileFormat(c.a[0], 22050, c.a[1], c.a[2], c.a[3]);
    b.SetFileFormat(c.b[0], 22050, c.b[1], c.b[2], c.b[3]);
    EXPECT_EQ(a.IsSameFormat(&b), c.same) << c.b[0] << " " << c.b[1] << " " << c.b[2] << " " << c.b[3];
  }
  CAudioNCT a;
  EXPECT_FALSE(a.IsSameFormat(nullptr));
}

TEST_F(NctTest, SettingsCommonFormatAndCopy) {
  std::string sIni = P("Kestrane.ini");
  CAudioNCT o;
  o.SetFileFormat(FormatOGG, 32000, 80, 1, 17);
  o.SaveFormat(sIni, "Fmt1");
  std::string s = ReadFile("Kestrane.ini");
  size_t iAt = 0;  // the keys in this order
  for (const char* k : {"SampleRate=32000", "Bitrate=80", "Channels=1", "FormatTag=17"}) {
    iAt = s.find(k, iAt);
    EXPECT_NE(iAt, std::string::npos) << k << "\n" << s;
  }
  CAudioNCT r;
  r.SetFileFormat(FormatMP2, 8000, 8, 2, 1);
  r.LoadFormat(sIni, "Fmt1");
  EXPECT_EQ(r.FormatType(), FormatMP2);  // the type is not stored
  EXPECT_EQ(r.SampleRate(), 32000);
  EXPECT_EQ(r.BitRate(), 80);
  r.LoadFormat(sIni, "Missing");
  EXPECT_EQ(r.BitRate(), 128);
  r.SetCommonFormat(o.CommonFormat());
  EXPECT_TRUE(r.IsSameFormat(&o));
  EXPECT_FALSE(r.Initialised());

  auto sink = std::make_shared<WarningSink>();
  o.SetParent(sink);
  o.SetAudioFileName("/x/y.ogg");
  o.SetWriteIndirect(true);
  o.SetMemFormat(Wfx::PCM(22050, 1));
  auto k = o.Copy();
  EXPECT_TRUE(k->IsSameFormat(&o));
  EXPECT_EQ(k->Parent(), sink);
  EXPECT_EQ(k->AudioFileName(), "/x/y.ogg");
  EXPECT_TRUE(k->WriteIndirect());
  EXPECT_EQ(k->MemFormat(), Wfx::PCM(22050, 1));
}

// ------------------------------------------------------------------ reading

TEST_F(NctTest, ReadsCompressedFilesInTheMemoryFormat) {
  struct Case {
    const char* name;
    const char* opts;
    int kbps, rate, ch;
  } cases[] = {{"a.mp3", "-c:a libmp3lame -b:a 128k", 128, 44100, 2},
               {"b.mp3", "-c:a libmp3lame -b:a 32k -ar 22050 -ac 1", 32, 22050, 1},
               {"a.ogg", "-c:a libvorbis -b:a 96k", 96, 44100, 2},
               {"a.mp2", "-c:a mp2 -b:a 64k -ar 24000 -ac 1", 64, 24000, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MakeSource(c.name, c.opts);
    CAudioNCT o;
    o.SetMemFormat(GetMemFormat());
    ASSERT_EQ(o.OpenAudioFile(P(c.name), AudioFileRead), 0);
    EXPECT_TRUE(o.AudioOpen());
    EXPECT_EQ(o.AudioFileName(), P(c.name));
    EXPECT_EQ(o.RecordedFileName(), "");
    EXPECT_EQ(o.SampleRate(), c.rate);
    EXPECT_EQ(o.Channels(), c.ch);
    EXPECT_NEAR(o.BitRate(), c.kbps, 1);
    EXPECT_NEAR(o.AudioLength(), 2.0, 0.06);
    EXPECT_NEAR(ReadAllBytes(o) / 176400.0, o.AudioLength(), 0.03);
    EXPECT_NEAR(o.CurrentPosition(), o.AudioLength(), 0.03);
    // Closing after a read renames and removes nothing.
    auto before = fs::file_size(P(c.name));
    EXPECT_EQ(o.CloseAudioFile(), 0);
    EXPECT_EQ(fs::file_size(P(c.name)), before);
    EXPECT_FALSE(o.AudioOpen());
  }
}

// Both classes: an empty or missing file opens as no audio; junk does not open and
// leaves the name alone (a file cut short is the component's, in its own test).
TEST_F(NctTest, EmptyMissingAndBrokenFiles) {
  std::vector<uint8_t> buf(176400 * 2);
  for (auto [iType, sExt] : {std::pair{FormatMP3, ".mp3"}, {FormatWMA, ".wma"}}) {
    SCOPED_TRACE(sExt);
    WriteFile(std::string("empty") + sExt, "");
    WriteFile(std::string("junk") + sExt, std::string(4000, 't'));
    auto o = Make(iType, 44100, 128, 2, 17, false);
    for (const char* s : {"empty", "missing"}) {
      EXPECT_EQ(o->OpenAudioFile(P(s + std::string(sExt)), AudioFileRead), 0) << s;
      EXPECT_EQ(o->AudioLength(), 0.0);
      EXPECT_EQ(o->ReadAudioData(buf.data(), 1.0f), 0);
    }
    auto j = Make(iType, 44100, 128, 2, 17, false);
    EXPECT_EQ(j->OpenAudioFile(P(std::string("junk") + sExt), AudioFileRead), -1);
    EXPECT_EQ(j->AudioFileName(), "");
    EXPECT_FALSE(j->AudioOpen());
    EXPECT_EQ(j->ReadAudioData(buf.data(), 1.0f), 0);
    EXPECT_EQ(GetAudioLengthSecs(P(std::string("junk") + sExt)), -1.0);
  }
}

TEST_F(NctTest, SeekFraction) {
  MakeSource("a.ogg", "-c:a libvorbis -b:a 96k");
  CAudioNCT o;
  ASSERT_EQ(o.OpenAudioFile(P("a.ogg"), AudioFileRead), 0);
  o.SeekFraction(0.5f);
  EXPECT_NEAR(o.CurrentPosition(), 1.0, 0.01);
  EXPECT_NEAR(ReadAllBytes(o) / 176400.0, 1.0, 0.03);
  o.SeekFraction(1.0f);
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), o.AudioLength());
  std::vector<uint8_t> buf(176400 * 2);
  EXPECT_EQ(o.ReadAudioData(buf.data(), 1.0f), 0);
}

// ------------------------------------------------------------------ writing

// Direct writes, both classes: a temporary name beside the final one, renamed at close
// over nothing (an old file went at the open).
TEST_F(NctTest, DirectWritesRenameAtClose) {
  struct Case {
    int type, rate, kbps, ch, tag;
    const char* name;
    const char* codec;
  } cases[] = {{FormatMP2, 22050, 64, 1, 17, "o.mp2", "mp2"},
               {FormatOGG, 44100, 96, 2, 17, "o.ogg", "vorbis"},
               {FormatWAV, 16000, 0, 1, 1, "p.wav", "pcm_s16le"},
               {FormatWAV, 22050, 0, 1, 17, "i.wav", "adpcm_ima_wav"},
               {FormatWMA, 44100, 18, 2, 0, "d.wma", "wmav2"}};  // profile 18: 32 kbps
  auto src = MemTone(1.5);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteFile(c.name, "old content that must go");
    auto o = Make(c.type, c.rate, c.kbps, c.ch, c.tag, false);
    ASSERT_EQ(o->OpenAudioFile(P(c.name), AudioFileWrite), 0);
    EXPECT_FALSE(fs::exists(P(c.name)));
    std::string sTemp = o->RecordedFileName();
    EXPECT_EQ(fs::path(sTemp).parent_path(), fs::path(P(c.name)).parent_path());
    EXPECT_TRUE(fs::exists(sTemp));
    EXPECT_TRUE(o->AudioOpen());
    EXPECT_EQ(WriteInPieces(*o, src), 88200);  // the last piece: half a second
    EXPECT_EQ(o->CloseAudioFile(), 0);
    EXPECT_FALSE(fs::exists(sTemp));
    EXPECT_EQ(o->WriteAudioData(src.data(), 400), -1);
    auto m = Probe(P(c.name));
    EXPECT_EQ(m["codec_name"], c.codec);
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    if (c.type == FormatWMA) {
      EXPECT_EQ(m["bit_rate"], "32000");
    }
    EXPECT_NEAR(GetAudioLengthSecs(P(c.name)), 1.5, 0.1);
  }
  // The IMA ADPCM file has the platform's block layout: 512 bytes at 22050 Hz mono.
  EXPECT_EQ(audiotest::Le16(ReadBytes(P("i.wav")), 32), 512);
}

TEST_F(NctTest, NothingWrittenOrAnAbandonedIndirectWriteLeavesNoFile) {
  for (int iType : {FormatMP2, FormatWMA}) {
    SCOPED_TRACE(iType);
    auto o = Make(iType, 44100, iType == FormatWMA ? 23 : 128, 2, 17, false);
    ASSERT_EQ(o->OpenAudioFile(P("none"), AudioFileWrite), 0);
    EXPECT_EQ(o->CloseAudioFile(), 0);
    EXPECT_FALSE(fs::exists(o->RecordedFileName()));
    EXPECT_FALSE(fs::exists(P("none")));
  }
  // The destructor closes an open direct write under the final name.
  {
    auto o = Make(FormatMP2, 44100, 128, 2, 17, false);
    ASSERT_EQ(o->OpenAudioFile(P("d.mp2"), AudioFileWrite), 0);
    WriteInPieces(*o, MemTone(0.5));
  }
  EXPECT_NEAR(GetAudioLengthSecs(P("d.mp2")), 0.5, 0.1);
  // An indirect write that is never closed leaves neither the final file nor its WAV.
  std::string sTemp;
  {
    auto o = Make(FormatMP3, 44100, 128, 2, 17, true);
    ASSERT_EQ(o->OpenAudioFile(P("x.mp3"), AudioFileWrite), 0);
    WriteInPieces(*o, MemTone(0.3));
    sTemp = o->RecordedFileName();
  }
  EXPECT_FALSE(fs::exists(sTemp));
  EXPECT_FALSE(fs::exists(P("x.mp3")));
}

// Failures report by result, with a warning to the parent where the component refused
// the file, in the words and under the source name of each class; no file is left.
TEST_F(NctTest, WriteFailuresReportByResult) {
  auto src = MemTone(0.1);
  CAudioNCT o;
  EXPECT_EQ(o.WriteAudioData(src.data(), 400), -1);  // nothing open
  o.SetWriteIndirect(true);
  EXPECT_EQ(o.WriteAudioData(src.data(), 400), -1);  // no WAV object
  o.SetWriteIndirect(false);
  o.SetFileFormat(FormatMP2, 44100, 128, 2, 17);
  EXPECT_EQ(o.OpenAudioFile(P("nowhere/x.mp2"), AudioFileWrite), -1);  // no temporary name
  EXPECT_EQ(o.AudioFileName(), "");
  struct Case {
    int type, kbps;  // WMA: a profile that does not exist
    const char* name;
    const char* source;
  } cases[] = {{FormatMP2, 128, "x.mp2", "CAudioNCT.OpenWriteFile"},
               {FormatWMA, 4444, "x.wma", "CAudioFileWMA.OpenWriteFile"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto f = Make(c.type, 11025, c.kbps, 2, 17, false);  // MP2 refuses 11025 Hz
    auto sink = std::make_shared<WarningSink>();
    f->SetParent(sink);
    EXPECT_GT(f->OpenAudioFile(P(c.name), AudioFileWrite), 0);
    ASSERT_EQ(sink->aWarnings.size(), 1u);
    EXPECT_EQ(sink->aWarnings[0].Number, 2);
    EXPECT_EQ(sink->aWarnings[0].source, c.source);
    EXPECT_EQ(sink->aWarnings[0].Description.rfind("Cannot open segment:\r\n", 0), 0u);
    EXPECT_EQ(f->WriteAudioData(src.data(), 400), -1);
    f->CloseAudioFile();
    EXPECT_FALSE(fs::exists(P(c.name)));
  }
}

// The trace of a write, a refused write and a close: the routine names of each class,
// and the indent back where it was on every path.
TEST_F(NctTest, TracesKeepTheirNamesAndNesting) {
  AppGlobal::SetDebugMode(10);
  DebugLog::ResetForTesting();
  auto src = MemTone(0.2);
  for (int iType : {FormatMP2, FormatWMA}) {
    auto o = Make(iType, 44100, iType == FormatWMA ? 23 : 128, 2, 17, false);
    ASSERT_EQ(o->OpenAudioFile(P(iType == FormatWMA ? "t.wma" : "t.mp2"), AudioFileWrite), 0);
    WriteInPieces(*o, src);
    o->CloseAudioFile();
    EXPECT_EQ(o->WriteAudioData(src.data(), 400), -1);
    auto f = Make(iType, 11025, iType == FormatWMA ? 4444 : 128, 2, 17, false);
    EXPECT_NE(f->OpenAudioFile(P("refused"), AudioFileWrite), 0);
    EXPECT_EQ(DebugLog::Indent(), 0);
  }
  const std::string sTrace = ReadBytes(DebugLog::CurrentFile());
  for (const char* s :
       {"Start CAudioNCT::IAF_OpenAudioFile", "    Start CAudioNCT::OpenWriteFile", "    End CAudioNCT::OpenWriteFile",
        " End CAudioNCT::IAF_OpenAudioFile", "Start CAudioNCT::IAF_CloseAudioFile",
        " End CAudioNCT::IAF_CloseAudioFile", " Exit CAudioNCT::IAF_WriteAudioData (File Not Open)",
        "Exit CAudioNCT::OpenWriteFile (Unable to create file)", "Start CAudioFileWMA::IAudioFile_OpenAudioFile",
        "    Start CAudioFileWMA::OpenWriteFile", " End CAudioFileWMA::IAudioFile_CloseAudioFile",
        " Exit CAudioWMA::IAudioFile_WriteAudioData (File is not open)",
        "Exit CAudioFileWMA::OpenWriteFile (CreateFile failed.  err = "})
    EXPECT_NE(sTrace.find(s), std::string::npos) << s << "\n" << sTrace;
}

// Indirect writes: a WAV file first, then the copier makes the final file from the
// object's format (the copier's output for every format is checked in its own test).
TEST_F(NctTest, IndirectWritesRunTheCopier) {
  struct Case {
    int type, rate, kbps, ch;  // WMA: kbps of profile 7
    const char* name;
    const char* codec;
  } cases[] = {{FormatMP3, 22050, 32, 1, "a.mp3", "mp3"},
               {FormatOGG, 44100, 128, 2, "b.ogg", "vorbis"},
               {FormatWMA, 22050, 24, 1, "c.wma", "wmav2"}};
  auto src = MemTone(1.5);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto o = Make(c.type, c.rate, c.type == FormatWMA ? 7 : c.kbps, c.ch, 17, true);
    ASSERT_EQ(o->OpenAudioFile(P(c.name), AudioFileWrite), 0);
    EXPECT_TRUE(o->AudioOpen());
    std::string sTemp = o->RecordedFileName();
    EXPECT_EQ(strcasecmp(fs::path(sTemp).extension().c_str(), ".wav"), 0) << sTemp;
    EXPECT_EQ(WriteInPieces(*o, src), 88200);
    EXPECT_NEAR(o->CurrentPosition(), 1.5, 0.01);
    EXPECT_EQ(o->CloseAudioFile(), 0);
    EXPECT_FALSE(fs::exists(sTemp));
    auto m = Probe(P(c.name));
    EXPECT_EQ(m["codec_name"], c.codec);
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    EXPECT_NEAR(std::atof(m["bit_rate"].c_str()) / 1000, c.kbps, c.kbps * 0.1);
    auto r = Make(c.type, 8000, 8, 2, 1, false);
    ASSERT_EQ(r->OpenAudioFile(P(c.name), AudioFileRead), 0);
    // The file's values replace the object's (for WMA, the profile number too).
    EXPECT_TRUE(
        std::dynamic_pointer_cast<IAudioFormat>(r)->IsSameFormat(std::dynamic_pointer_cast<IAudioFormat>(o).get()));
    if (auto w = std::dynamic_pointer_cast<CAudioWMA>(r)) {
      EXPECT_EQ(w->ProfileNum(), 7);
    }
    EXPECT_NEAR(ReadAllBytes(*r) / 176400.0, GetAudioLengthSecs(P(c.name)), 0.1);
  }
}

// A copier output cut short, in any of its formats, measures short: the length check
// (the two lengths within the default tolerance of one second) rejects it, where the
// whole file passes. The length is that of the frames, pages or packets still there.
TEST_F(NctTest, CopierOutputCutShortFailsTheLengthCheck) {
  const double dSecs = 12.0;
  const auto src = MemTone(dSecs);
  for (auto [iType, sName] :
       {std::pair{FormatMP3, "a.mp3"}, {FormatMP2, "a.mp2"}, {FormatOGG, "a.ogg"}, {FormatWMA, "a.wma"}}) {
    SCOPED_TRACE(sName);
    {
      auto o = Make(iType, 44100, iType == FormatWMA ? 23 : 128, 2, 17, true);
      ASSERT_EQ(o->OpenAudioFile(P(sName), AudioFileWrite), 0);
      WriteInPieces(*o, src);
      ASSERT_EQ(o->CloseAudioFile(), 0);
    }
    // The class's length of a file (-1 when it does not open).
    auto ClassLength = [&, iKind = iType](const std::string& sFile) {
      auto r = Make(iKind, 44100, 128, 2, 17, false);
      return r->OpenAudioFile(P(sFile), AudioFileRead) == 0 ? r->AudioLength() : -1.0;
    };
    EXPECT_NEAR(ClassLength(sName), dSecs, 0.05);
    EXPECT_NEAR(GetAudioLengthSecs(P(sName)), dSecs, 0.05);
    const std::string sBytes = ReadBytes(P(sName));
    for (double dPart : {0.5, 0.9}) {
      SCOPED_TRACE(dPart);
      const std::string sCut = "cut_" + std::string(sName);
      WriteBytes(P(sCut), sBytes.substr(0, static_cast<size_t>(sBytes.size() * dPart)));
      const double dLength = GetAudioLengthSecs(P(sCut));
      EXPECT_GT(std::abs(dSecs - dLength), 1.0) << dLength;
      // What ffmpeg decodes of the same bytes, but for the pieces of a cut frame or page.
      EXPECT_NEAR(dLength, DecodedFrames(P(sCut), 2) / 44100.0, 0.05);
      EXPECT_LT(dLength, dSecs * dPart + 0.5);
      EXPECT_NEAR(ClassLength(sCut), dLength, 0.001);
    }
  }
}

TEST_F(NctTest, GetAudioLengthSecs) {
  WriteFile("empty.wav", "");
  WriteFile("text.ogg", std::string(2000, 'x'));
  for (const char* s : {"missing.mp3", "empty.wav", "text.ogg"}) EXPECT_EQ(GetAudioLengthSecs(P(s)), -1.0) << s;
  for (auto [name, opts] : {std::pair{"a.mp3", "-c:a libmp3lame -b:a 64k"}, std::pair{"a.wma", "-c:a wmav2 -b:a 64k"},
                            std::pair{"a.ogg", "-c:a libvorbis"}, std::pair{"a.wav", "-c:a adpcm_ima_wav"}}) {
    SCOPED_TRACE(name);
    MakeSource(name, opts, 1.25);
    double dProbe = std::atof(Probe(P(name))["format_duration"].c_str());
    EXPECT_NEAR(GetAudioLengthSecs(P(name)), 1.25, 0.1);
    EXPECT_NEAR(GetAudioLengthSecs(P(name)), dProbe, 0.1);
  }
  // A WAV file's length is the audio of its data chunk, whatever its "fact" count says:
  // 2 s of IMA ADPCM whose count was set to 1.5 s still measures 2 s and a block at most.
  MakeSource("ima.wav", "-c:a adpcm_ima_wav -ar 8000 -ac 1", 2.0);
  std::string sIma = ReadFile("ima.wav");
  const size_t iFact = sIma.find("fact");
  ASSERT_NE(iFact, std::string::npos);
  sIma.replace(iFact + 8, 4, audiotest::U32(12000));
  WriteFile("ima.wav", sIma);
  EXPECT_GE(GetAudioLengthSecs(P("ima.wav")), 2.0);
  EXPECT_LT(GetAudioLengthSecs(P("ima.wav")), 2.07);
}

}  // namespace
