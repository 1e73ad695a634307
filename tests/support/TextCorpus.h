// Deterministic sample texts for the conversion tests and benchmarks:
// setting names, and ASCII, accented European, CJK and emoji-heavy text.
//
// A text is words of its script drawn in pseudo-random order (a fixed seed
// and std::mt19937's raw output, which the standard specifies exactly, so
// the texts are the same everywhere) with the script's separators. Random
// order matters for honest timings: a text that repeats a few fixed phrases
// lets the processor's branch predictor learn the whole input, which no real
// text allows.

#ifndef MORV_TESTS_TEXTCORPUS_H
#define MORV_TESTS_TEXTCORPUS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace corpus {

// Draws words (and, after some of them, a separator) until the text holds
// at least `bytes` bytes. Characters are never cut.
inline std::string Words(const std::vector<std::string>& words,
                         const std::vector<std::string>& separators, std::size_t bytes,
                         std::uint32_t seed) {
  std::mt19937 random(seed);
  std::string text;
  text.reserve(bytes + 64);
  while (text.size() < bytes) {
    text += words[random() % words.size()];
    text += separators[random() % separators.size()];
  }
  return text;
}

inline std::string Ascii(std::size_t bytes) {
  return Words(
      {"the",      "media",   "server",  "keeps", "its",      "library",  "index",     "in",
       "settings", "store",   "install", "path",  "recorded", "by",       "installer", "for",
       "every",    "product", "values",  "are",   "typed",    "integers", "reals",     "booleans",
       "strings",  "and",     "data",    "user",  "shared",   "file",     "node",      "key",
       "2026",     "v1.0",    "HTTP",    "port",  "8080",     "enabled",  "false",     "true"},
      {" ", " ", " ", " ", ", ", ". ", "\n", " = ", "/"}, bytes, 1);
}

inline std::string Accented(std::size_t bytes) {
  return Words(
      {"Ça",      "coûte",     "très",    "cher",    "à",        "Paris",   "où",   "l'été",
       "est",     "chaud",     "Größere", "Übungen", "für",      "Äpfel",   "und",  "Öfen",
       "in",      "München",   "Señora",  "Núñez",   "añadió",   "piñones", "al",   "guiso",
       "Čeština", "žluťoučký", "kůň",     "úpěl",    "ďábelské", "ódy",     "Łódź", "zażółć",
       "gęślą",   "jaźń",      "São",     "Paulo",   "coração",  "ação",    "Ærø",  "smørrebrød",
       "fjörður", "the",       "and",     "de",      "la",       "der",     "die",  "el",
       "y",       "et"},
      {" ", " ", " ", ", ", ". ", "; ", "\n"}, bytes, 2);
}

inline std::string Cjk(std::size_t bytes) {
  return Words(
      {"媒体",     "服务器", "设置", "存储", "中",       "保存",   "库",     "索引",     "安装",
       "程序",     "为",     "每个", "产品", "记录",     "路径",   "設定",   "ファイル", "は",
       "ユーザー", "ごと",   "に",   "保存", "されます", "한국어", "텍스트", "도",       "포함",
       "됩니다",   "서버",   "설정", "파일", "東京",     "北京",   "서울"},
      {"", "", "", "，", "。", "、", " ", "\n"}, bytes, 3);
}

inline std::string Emoji(std::size_t bytes) {
  return Words({"😀", "😃",      "😄",      "😁",    "😆",     "😅",        "🤣",     "😂", "🚀",
                "✅", "🎵",      "🎶",      "📺",    "📻",     "👍🏽", "👋🏿", "🌍", "🌎",
                "🌏", "❤️", "launch", "done", "media", "hi",       "ok"},
               {"", "", " ", " ", "! ", "\n"}, bytes, 4);
}

// Setting names of 16 to 40 bytes, the kind the store converts on every call.
inline std::vector<std::string> SettingNames() {
  return {"InstallPath/Current",        "MediaLibrary/IndexFolder",
          "Network/HttpPort/Default",   "Transcoder/MaxConcurrentJobs",
          "Ui/Window/LastPosition/X",   "Sharing/AllowedClientAddresses",
          "Updates/LastCheckTimestamp", "Bibliothèque/Dossier/Vidéo"};
}

}  // namespace corpus

#endif  // MORV_TESTS_TEXTCORPUS_H
