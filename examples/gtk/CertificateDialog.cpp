#include "CertificateDialog.h"

#include <gcr/gcr-base.h>

#include <cstdio>
#include <string>

#include "../desktop/Words.h"

namespace example {
namespace {

constexpr int kMargin = 12;
constexpr int kGap = 12;
constexpr int kLineGap = 6;
constexpr std::size_t kLongestName = 500;

// The bytes between the lines BEGIN and END of a PEM text; none: NULL.
GcrCertificate* certificateFrom(const std::string& pem) {
  const std::size_t begin = pem.find('\n', pem.find("-----BEGIN CERTIFICATE-----"));
  const std::size_t end = pem.find("-----END", begin);
  if (end == std::string::npos) {
    return nullptr;
  }
  gsize size = 0;
  guchar* const bytes = g_base64_decode(pem.substr(begin, end - begin).c_str(), &size);
  GcrCertificate* const certificate = gcr_simple_certificate_new(bytes, size);
  g_free(bytes);
  return certificate;
}

std::string shownName(gchar* name) {
  std::string text = shownLine(name != nullptr ? name : "", kLongestName);
  g_free(name);
  return text;
}

std::string shownDate(GDate* date) {
  char text[64] = "";
  if (date != nullptr) {
    g_date_strftime(text, sizeof(text), "%-d %B %Y", date);
    g_date_free(date);
  }
  return text;
}

// Pairs of digits, sixteen on a line.
std::string fingerprint(GcrCertificate* certificate) {
  constexpr gsize kPairsPerLine = 16;
  gsize size = 0;
  guchar* const bytes = gcr_certificate_get_fingerprint(certificate, G_CHECKSUM_SHA256, &size);
  std::string text;
  for (gsize i = 0; i < size; ++i) {
    char pair[4];
    std::snprintf(pair, sizeof(pair), "%02X", bytes[i]);
    text += i == 0 ? "" : i % kPairsPerLine == 0 ? "\n" : ":";
    text += pair;
  }
  g_free(bytes);
  return text;
}

GtkWidget* label(const std::string& text) {
  constexpr int kLongestLine = 56;
  GtkWidget* const widget = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(widget), 0);
  gtk_label_set_yalign(GTK_LABEL(widget), 0);
  gtk_label_set_line_wrap(GTK_LABEL(widget), TRUE);
  gtk_label_set_line_wrap_mode(GTK_LABEL(widget), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_max_width_chars(GTK_LABEL(widget), kLongestLine);
  return widget;
}

void setAttribute(GtkWidget* label, PangoAttribute* attribute) {
  PangoAttrList* const attributes = pango_attr_list_new();
  pango_attr_list_insert(attributes, attribute);
  gtk_label_set_attributes(GTK_LABEL(label), attributes);
  pango_attr_list_unref(attributes);
}

GtkWidget* addField(GtkGrid* fields, int line, const char* name, const std::string& value) {
  GtkWidget* const title = label(name);
  gtk_widget_set_sensitive(title, FALSE);
  GtkWidget* const text = label(value);
  gtk_grid_attach(fields, title, 0, line, 1, 1);
  gtk_grid_attach(fields, text, 1, line, 1, 1);
  return text;
}

GtkWidget* makeFields(const std::string& pem) {
  GtkWidget* const fields = gtk_grid_new();
  gtk_grid_set_row_spacing(GTK_GRID(fields), kLineGap);
  gtk_grid_set_column_spacing(GTK_GRID(fields), kGap);
  GcrCertificate* const certificate = certificateFrom(pem);
  if (certificate == nullptr) {
    return fields;
  }
  GtkGrid* const grid = GTK_GRID(fields);
  addField(grid, 0, "Issued to", shownName(gcr_certificate_get_subject_dn(certificate)));
  addField(grid, 1, "Issued by", shownName(gcr_certificate_get_issuer_dn(certificate)));
  addField(grid, 2, "Valid from", shownDate(gcr_certificate_get_issued_date(certificate)));
  addField(grid, 3, "Valid until", shownDate(gcr_certificate_get_expiry_date(certificate)));
  setAttribute(addField(grid, 4, "SHA-256", fingerprint(certificate)), pango_attr_family_new("monospace"));
  g_object_unref(certificate);
  return fields;
}

GtkWidget* makeContent(const CertificateQuestion& question) {
  GtkWidget* const texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, kGap);
  GtkWidget* const message = label(question.message);
  setAttribute(message, pango_attr_weight_new(PANGO_WEIGHT_BOLD));
  gtk_box_pack_start(GTK_BOX(texts), message, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(texts), label(question.informativeText), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(texts), makeFields(question.certificate), FALSE, FALSE, 0);
  GtkWidget* const icon = gtk_image_new_from_icon_name("dialog-warning", GTK_ICON_SIZE_DIALOG);
  gtk_widget_set_valign(icon, GTK_ALIGN_START);
  GtkWidget* const content = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kMargin);
  gtk_container_set_border_width(GTK_CONTAINER(content), kMargin);
  gtk_box_pack_start(GTK_BOX(content), icon, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(content), texts, TRUE, TRUE, 0);
  return content;
}

}  // namespace

bool runCertificateDialog(GtkWindow* parent, const CertificateQuestion& question) {
  GtkWidget* const dialog = gtk_dialog_new_with_buttons(("Certificate of " + question.host).c_str(), parent,
                                                        GTK_DIALOG_MODAL, nullptr, nullptr);
  if (question.isQuestion) {
    gtk_dialog_add_button(GTK_DIALOG(dialog), "C_ontinue", GTK_RESPONSE_YES);
  }
  // Set as a text: an underscore in it is no mnemonic.
  GtkWidget* const decline =
      gtk_dialog_add_button(GTK_DIALOG(dialog), question.declineTitle.c_str(), GTK_RESPONSE_CANCEL);
  gtk_button_set_use_underline(GTK_BUTTON(decline), FALSE);
  gtk_style_context_add_class(gtk_widget_get_style_context(decline), GTK_STYLE_CLASS_SUGGESTED_ACTION);
  gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_CANCEL);
  gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
  gtk_container_set_border_width(GTK_CONTAINER(dialog), kGap / 2);
  gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), makeContent(question));
  gtk_widget_show_all(dialog);
  gtk_widget_grab_focus(decline);
  const int response = gtk_dialog_run(GTK_DIALOG(dialog));
  gtk_widget_destroy(dialog);
  return response == GTK_RESPONSE_YES;
}

}  // namespace example
