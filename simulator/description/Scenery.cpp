#include "simulator/description/Scenery.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {
namespace {

constexpr double kTurn = 6.283185307179586;

struct Colour {
  double red, green, blue;
};

Colour mixed(const Colour& a, const Colour& b, double part) {
  return {a.red + (b.red - a.red) * part, a.green + (b.green - a.green) * part,
          a.blue + (b.blue - a.blue) * part};
}

/// What differs from one picture to the next; each from 0 to 1.
struct Mood {
  double hour, sun, hills, season;
};

Mood moodOf(std::string_view name) {
  // FNV-1a: the same on every machine.
  std::uint32_t hash = 2166136261U;
  for (const char c : name)
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  const auto part = [&](int shift) { return static_cast<double>((hash >> shift) & 0xFF) / 255; };
  return {part(0), part(8), part(16), part(24)};
}

Colour colourAt(double x, double y, const Mood& mood) {
  const Colour zenith = mixed({40, 90, 180}, {70, 50, 110}, mood.hour);
  const Colour horizon = mixed({200, 225, 245}, {250, 170, 90}, mood.hour);
  const double sunX = x - (0.15 + 0.7 * mood.sun);
  const double sunY = y - (0.2 + 0.15 * mood.hour);
  const double glow = std::exp(-60 * (sunX * sunX + sunY * sunY));
  Colour colour = mixed(mixed(zenith, horizon, std::min(y / 0.6, 1.0)), {255, 245, 210}, glow);
  for (int ridge = 0; ridge < 3; ++ridge) {
    const double near = ridge / 2.0;
    const double edge = 0.5 + 0.15 * ridge +
                        0.07 * std::sin(kTurn * (x * (1 + ridge) + mood.hills + 0.31 * ridge)) +
                        0.02 * std::sin(kTurn * (x * (5 + ridge) - mood.season));
    const Colour hill =
        mixed({120, 140, 170}, mixed({40, 110, 50}, {150, 90, 40}, mood.season), near);
    if (y > edge) colour = mixed(hill, {20, 30, 20}, std::min((y - edge) * 1.2, 0.6));
  }
  return colour;
}

std::vector<unsigned char> pixelsOf(int width, int height, const Mood& mood) {
  std::vector<unsigned char> pixels;
  pixels.reserve(std::size_t{3} * static_cast<unsigned>(width) * static_cast<unsigned>(height));
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      const Colour colour =
          colourAt(static_cast<double>(column) / width, static_cast<double>(row) / height, mood);
      for (const double part : {colour.red, colour.green, colour.blue})
        pixels.push_back(static_cast<unsigned char>(std::clamp(part, 0.0, 255.0)));
    }
  }
  return pixels;
}

/// "2026:08:01 09:15:00", as EXIF has it; empty where `taken` is no PTP date.
std::string exifDate(std::string_view taken) {
  if (taken.size() < 15 || taken[8] != 'T') return "";
  const auto part = [&](std::size_t at, std::size_t size) {
    return std::string(taken.substr(at, size));
  };
  return part(0, 4) + ":" + part(4, 2) + ":" + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) +
         ":" + part(13, 2);
}

/// The segment APP1 with the date of the picture (Exif 2.3, 4.5.4): a directory that points to one
/// with the date alone.
Bytes exifSegment(const std::string& date) {
  constexpr std::uint16_t kExifDirectory = 0x8769;
  constexpr std::uint16_t kDateTimeOriginal = 0x9003;
  ByteWriter tiff;
  for (const char c : std::string_view("II*\0\x08\0\0\0", 8))
    tiff.u8(static_cast<std::uint8_t>(c));
  const auto directory = [&](std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                             std::uint32_t value) {
    tiff.u16(1);
    tiff.u16(tag);
    tiff.u16(type);
    tiff.u32(count);
    tiff.u32(value);
    tiff.u32(0);  // no further directory
  };
  directory(kExifDirectory, 4, 1, 26);
  directory(kDateTimeOriginal, 2, 20, 44);
  for (const char c : date)
    tiff.u8(static_cast<std::uint8_t>(c));
  tiff.u8(0);
  const Bytes body = tiff.take();
  ByteWriter segment;
  segment.u8(0xFF);
  segment.u8(0xE1);
  segment.u8(0);  // its length, with the highest byte in front
  segment.u8(static_cast<std::uint8_t>(2 + 6 + body.size()));
  for (const char c : std::string_view("Exif\0\0", 6))
    segment.u8(static_cast<std::uint8_t>(c));
  segment.raw(body);
  return segment.take();
}

}  // namespace

std::string sceneryJPEG(int width, int height, std::string_view name, std::string_view taken) {
  const auto pixels = pixelsOf(width, height, moodOf(name));
  const std::unique_ptr<void, decltype(&tjDestroy)> encoder(tjInitCompress(), tjDestroy);
  unsigned char* made = nullptr;
  unsigned long size = 0;
  constexpr int kQuality = 90;
  const int result = tjCompress2(encoder.get(), pixels.data(), width, 0, height, TJPF_RGB, &made,
                                 &size, TJSAMP_420, kQuality, 0);
  const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(made, tjFree);
  if (result != 0) throw std::runtime_error("no JPEG picture could be made");
  std::string jpeg(reinterpret_cast<const char*>(made), size);
  const std::string date = exifDate(taken);
  if (date.empty()) return jpeg;
  const Bytes segment = exifSegment(date);
  // Behind the mark of the file's beginning.
  return jpeg.insert(2, reinterpret_cast<const char*>(segment.data()), segment.size());
}

}  // namespace tarvo::simulator
