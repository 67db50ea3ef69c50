// Composing with GMime: files are read while the message is written into a block of memory or a
// file.

#ifdef NETRO_HAVE_GMIME

#include <fcntl.h>
#include <gmime/gmime.h>

#include "bench/Compose.h"

namespace netro::bench {
namespace {

GMimeObject* TextPart(const std::string& text) {
  GMimeTextPart* part = g_mime_text_part_new();
  g_mime_text_part_set_charset(part, "utf-8");
  g_mime_text_part_set_text(part, text.c_str());
  g_mime_part_set_content_encoding(GMIME_PART(part), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  return GMIME_OBJECT(part);
}

GMimeObject* FilePart(const std::string& file) {
  GMimeStream* stream = g_mime_stream_fs_open(file.c_str(), O_RDONLY, 0, nullptr);
  if (stream == nullptr) {
    return nullptr;
  }
  GMimePart* part = g_mime_part_new_with_type("application", "octet-stream");
  GMimeDataWrapper* content =
      g_mime_data_wrapper_new_with_stream(stream, GMIME_CONTENT_ENCODING_DEFAULT);
  g_mime_part_set_content(part, content);
  g_mime_part_set_content_encoding(part, GMIME_CONTENT_ENCODING_BASE64);
  g_mime_part_set_filename(part, file.substr(file.rfind('/') + 1).c_str());
  g_object_unref(content);
  g_object_unref(stream);
  return GMIME_OBJECT(part);
}

void Add(GMimeMultipart* parts, GMimeObject* part) {
  g_mime_multipart_add(parts, part);
  g_object_unref(part);
}

GMimeStream* Output(const std::string& file) {
  if (file.empty()) {
    return g_mime_stream_mem_new();
  }
  return g_mime_stream_fs_open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600, nullptr);
}

/// Takes `body`.
std::size_t WrittenSize(GMimeObject* body, const std::string& file) {
  GMimeMessage* message = g_mime_message_new(TRUE);
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, "A", "a@x.test");
  g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, "B", "b@x.test");
  g_mime_message_set_subject(message, "Measured", nullptr);
  GDateTime* now = g_date_time_new_now_local();
  g_mime_message_set_date(message, now);
  g_date_time_unref(now);
  g_mime_message_set_message_id(message, "1@x.test");
  g_mime_message_set_mime_part(message, body);
  g_object_unref(body);
  GMimeFormatOptions* options = g_mime_format_options_new();
  g_mime_format_options_set_newline_format(options, GMIME_NEWLINE_FORMAT_DOS);
  GMimeStream* output = Output(file);
  g_mime_object_write_to_stream(GMIME_OBJECT(message), options, output);
  const gint64 size = g_mime_stream_length(output);
  g_object_unref(output);
  g_mime_format_options_free(options);
  g_object_unref(message);
  return size < 0 ? 0 : static_cast<std::size_t>(size);
}

}  // namespace

std::string GMimeCompose(const Compose& compose, Stopwatch& watch) {
  g_mime_init();
  watch.Start();
  for (int i = 0; i < compose.repetitions; ++i) {
    GMimeObject* body = TextPart(compose.text);
    if (!compose.files.empty()) {
      GMimeMultipart* parts = g_mime_multipart_new_with_subtype("mixed");
      Add(parts, body);
      for (const std::string& file : compose.files) {
        GMimeObject* part = FilePart(file);
        if (part == nullptr) {
          return "cannot read " + file;
        }
        Add(parts, part);
      }
      body = GMIME_OBJECT(parts);
    }
    const std::size_t size = WrittenSize(body, compose.output);
    if (size < compose.leastSize) {
      return "a message of " + std::to_string(size) + " bytes";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench

#endif
