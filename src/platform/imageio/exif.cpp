// EXIF metadata: reading orientation and common camera tags, and writing the orientation tag.

#include "platform/imageio/codec_internal.h"

#include <libexif/exif-data.h>

#include <cstdlib>
#include <cstring>

namespace brenvia::imageio::detail {
namespace {

constexpr uint8_t kExifHeader[6] = {'E', 'x', 'i', 'f', 0, 0};
constexpr uint16_t kOrientationTag = 0x0112;
// A longer array is not a plain camera value; it is left out rather than copied.
constexpr unsigned long kMaxComponents = 16;

struct TagName {
  uint16_t tag;
  const char* name;
  bool alwaysArray;
};

// First IFD, reported as "{TIFF}".
constexpr TagName kTIFFTags[] = {
    {0x010e, "ImageDescription", false}, {0x010f, "Make", false},       {0x0110, "Model", false},
    {0x0112, "Orientation", false},      {0x011a, "XResolution", false}, {0x011b, "YResolution", false},
    {0x0128, "ResolutionUnit", false},   {0x0131, "Software", false},    {0x0132, "DateTime", false},
    {0x013b, "Artist", false},           {0x013c, "HostComputer", false}, {0x8298, "Copyright", false},
};

// The EXIF sub-IFD, reported as "{Exif}".
constexpr TagName kExifTags[] = {
    {0x829a, "ExposureTime", false},       {0x829d, "FNumber", false},
    {0x8822, "ExposureProgram", false},    {0x8827, "ISOSpeedRatings", true},
    {0x9003, "DateTimeOriginal", false},   {0x9004, "DateTimeDigitized", false},
    {0x9010, "OffsetTime", false},         {0x9011, "OffsetTimeOriginal", false},
    {0x9012, "OffsetTimeDigitized", false}, {0x9201, "ShutterSpeedValue", false},
    {0x9202, "ApertureValue", false},      {0x9203, "BrightnessValue", false},
    {0x9204, "ExposureBiasValue", false},  {0x9205, "MaxApertureValue", false},
    {0x9206, "SubjectDistance", false},    {0x9207, "MeteringMode", false},
    {0x9208, "LightSource", false},        {0x9209, "Flash", false},
    {0x920a, "FocalLength", false},        {0x9290, "SubsecTime", false},
    {0x9291, "SubsecTimeOriginal", false}, {0x9292, "SubsecTimeDigitized", false},
    {0xa001, "ColorSpace", false},         {0xa002, "PixelXDimension", false},
    {0xa003, "PixelYDimension", false},    {0xa217, "SensingMethod", false},
    {0xa402, "ExposureMode", false},       {0xa403, "WhiteBalance", false},
    {0xa404, "DigitalZoomRatio", false},   {0xa405, "FocalLenIn35mmFilm", false},
    {0xa406, "SceneCaptureType", false},   {0xa408, "Contrast", false},
    {0xa409, "Saturation", false},         {0xa40a, "Sharpness", false},
    {0xa431, "BodySerialNumber", false},   {0xa432, "LensSpecification", false},
    {0xa433, "LensMake", false},           {0xa434, "LensModel", false},
};

template <size_t N>
const TagName* findTag(const TagName (&table)[N], uint16_t tag) {
  for (const TagName& t : table)
    if (t.tag == tag) return &t;
  return nullptr;
}

// Length of the well-formed UTF-8 sequence starting at p (overlong forms and surrogates excluded),
// or 1 when there is none.
size_t utf8SequenceLength(const unsigned char* p, size_t n) {
  unsigned char c = p[0];
  size_t len = c >= 0xc2 && c <= 0xdf ? 2 : c >= 0xe0 && c <= 0xef ? 3 : c >= 0xf0 && c <= 0xf4 ? 4 : 1;
  if (len == 1 || len > n) return 1;
  unsigned char lo = c == 0xe0 ? 0xa0 : c == 0xf0 ? 0x90 : 0x80;
  unsigned char hi = c == 0xed ? 0x9f : c == 0xf4 ? 0x8f : 0xbf;
  if (p[1] < lo || p[1] > hi) return 1;
  for (size_t k = 2; k < len; ++k)
    if ((p[k] & 0xc0) != 0x80) return 1;
  return len;
}

// One component of a numeric entry, or null for a zero denominator.
Value numberAt(const ExifEntry* e, unsigned long i, ExifByteOrder order) {
  const unsigned char* p = e->data + i * exif_format_get_size(e->format);
  switch (e->format) {
    case EXIF_FORMAT_BYTE: return *p;
    case EXIF_FORMAT_SBYTE: return static_cast<int8_t>(*p);
    case EXIF_FORMAT_SHORT: return exif_get_short(p, order);
    case EXIF_FORMAT_SSHORT: return exif_get_sshort(p, order);
    case EXIF_FORMAT_LONG: return exif_get_long(p, order);
    case EXIF_FORMAT_SLONG: return exif_get_slong(p, order);
    case EXIF_FORMAT_RATIONAL: {
      ExifRational r = exif_get_rational(p, order);
      return r.denominator ? Value(static_cast<double>(r.numerator) / r.denominator) : Value();
    }
    case EXIF_FORMAT_SRATIONAL: {
      ExifSRational r = exif_get_srational(p, order);
      return r.denominator ? Value(static_cast<double>(r.numerator) / r.denominator) : Value();
    }
    default: return Value();
  }
}

// The entry as a string, number or array of numbers; null when it has no usable value.
Value entryValue(const ExifEntry* e, ExifByteOrder order, bool alwaysArray) {
  if (!e->data || e->components == 0) return Value();
  unsigned char unit = exif_format_get_size(e->format);
  if (unit == 0 || e->components > e->size / unit) return Value();
  if (e->format == EXIF_FORMAT_ASCII) return textValue(e->data, e->size);
  if (e->format == EXIF_FORMAT_UNDEFINED || e->components > kMaxComponents) return Value();
  if (e->components == 1 && !alwaysArray) return numberAt(e, 0, order);
  Value list = Value::array();
  for (unsigned long i = 0; i < e->components; ++i) {
    Value v = numberAt(e, i, order);
    if (v.is_null()) return Value();
    list.push_back(std::move(v));
  }
  return list;
}

template <size_t N>
void copyGroup(ExifContent* content, const TagName (&table)[N], ExifByteOrder order, const char* groupName,
               Value& properties) {
  if (!content) return;
  Value group = Value::object();
  for (unsigned int i = 0; i < content->count; ++i) {
    const ExifEntry* e = content->entries[i];
    const TagName* t = e ? findTag(table, static_cast<uint16_t>(e->tag)) : nullptr;
    if (!t) continue;
    Value v = entryValue(e, order, t->alwaysArray);
    if (!v.is_null()) group[t->name] = std::move(v);
  }
  if (!group.empty()) properties[groupName] = std::move(group);
}

struct ExifDataDeleter {
  void operator()(ExifData* d) const { exif_data_unref(d); }
};
using ExifDataPtr = std::unique_ptr<ExifData, ExifDataDeleter>;

}  // namespace

std::string textValue(const unsigned char* p, size_t n) {
  size_t len = 0;
  while (len < n && p[len] != 0) ++len;
  while (len > 0 && p[len - 1] == ' ') --len;
  std::string out;
  out.reserve(len);
  for (size_t i = 0; i < len;) {
    unsigned char c = p[i];
    size_t follow = utf8SequenceLength(p + i, len - i) - 1;
    if (c < 0x80 || follow > 0) {
      out.append(reinterpret_cast<const char*>(p + i), follow + 1);
      i += follow + 1;
    } else {
      out.push_back(static_cast<char>(0xc0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3f)));
      ++i;
    }
  }
  return out;
}

void mergeExif(const uint8_t* data, size_t size, Value& properties) {
  if (!data || size < 8 || size > 0xffffffffu - sizeof kExifHeader) return;
  std::vector<uint8_t> block;
  if (std::memcmp(data, "II*\0", 4) == 0 || std::memcmp(data, "MM\0*", 4) == 0) {
    block.assign(kExifHeader, kExifHeader + sizeof kExifHeader);
    block.insert(block.end(), data, data + size);
    data = block.data();
    size = block.size();
  } else if (std::memcmp(data, kExifHeader, sizeof kExifHeader) != 0) {
    return;
  }
  ExifDataPtr exif(exif_data_new());
  if (!exif) return;
  // Report what the file holds: no tags invented to complete the block, none dropped as unknown.
  exif_data_unset_option(exif.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
  exif_data_unset_option(exif.get(), EXIF_DATA_OPTION_IGNORE_UNKNOWN_TAGS);
  exif_data_load_data(exif.get(), data, static_cast<unsigned int>(size));
  ExifByteOrder order = exif_data_get_byte_order(exif.get());

  copyGroup(exif->ifd[EXIF_IFD_0], kTIFFTags, order, "{TIFF}", properties);
  copyGroup(exif->ifd[EXIF_IFD_EXIF], kExifTags, order, "{Exif}", properties);

  ExifEntry* e = exif_content_get_entry(exif->ifd[EXIF_IFD_0], static_cast<ExifTag>(kOrientationTag));
  if (e && e->format == EXIF_FORMAT_SHORT && e->components >= 1 && e->size >= 2) {
    int orientation = exif_get_short(e->data, order);
    if (orientation >= 1 && orientation <= 8) properties["Orientation"] = orientation;
  }
}

std::vector<uint8_t> orientationExif(int orientation) {
  std::vector<uint8_t> bytes;
  ExifDataPtr exif(exif_data_new());
  if (!exif) return bytes;
  const ExifByteOrder order = EXIF_BYTE_ORDER_MOTOROLA;
  exif_data_set_byte_order(exif.get(), order);
  exif_data_set_data_type(exif.get(), EXIF_DATA_TYPE_COMPRESSED);
  ExifEntry* e = exif_entry_new();
  if (!e) return bytes;
  exif_content_add_entry(exif->ifd[EXIF_IFD_0], e);
  exif_entry_initialize(e, static_cast<ExifTag>(kOrientationTag));
  if (e->data && e->size >= 2) exif_set_short(e->data, order, static_cast<ExifShort>(orientation));
  exif_entry_unref(e);

  unsigned char* saved = nullptr;
  unsigned int savedSize = 0;
  exif_data_save_data(exif.get(), &saved, &savedSize);
  if (saved && savedSize > sizeof kExifHeader) bytes.assign(saved, saved + savedSize);
  std::free(saved);
  return bytes;
}

}  // namespace brenvia::imageio::detail
