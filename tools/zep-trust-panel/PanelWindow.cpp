#include "PanelWindow.h"

#include <gcr/gcr.h>

#include <algorithm>
#include <utility>

#include "DisplayText.h"
#include "Reasons.h"

namespace {

using foundation::PanelKind;
using foundation::PanelRequest;

constexpr int kMargin = 18;
constexpr int kGap = 12;
constexpr int kWidth = 560;
constexpr int kButtonWidth = 110;
constexpr int kLongestButtonTitle = 24;
constexpr std::size_t kLongestHeading = 500;
constexpr std::size_t kLongestText = 4000;
constexpr std::size_t kLongestHost = 300;
constexpr std::size_t kLongestTitleHost = 80;
constexpr std::size_t kLongestToolTip = 300;
/// Nobody reads more.
constexpr std::size_t kMostIssuers = 9;

GtkBox* asBox(GtkWidget* widget) {
  return GTK_BOX(widget);
}

GtkWidget* column(int gap) {
  return gtk_box_new(GTK_ORIENTATION_VERTICAL, gap);
}

GtkWidget* row(int gap) {
  return gtk_box_new(GTK_ORIENTATION_HORIZONTAL, gap);
}

void add(GtkWidget* box, GtkWidget* child) {
  gtk_box_pack_start(asBox(box), child, FALSE, FALSE, 0);
}

void setAttribute(GtkWidget* label, PangoAttribute* attribute) {
  const PangoAttrList* const before = gtk_label_get_attributes(GTK_LABEL(label));
  PangoAttrList* const attributes =
      before != nullptr ? pango_attr_list_copy(const_cast<PangoAttrList*>(before)) : pango_attr_list_new();
  pango_attr_list_insert(attributes, attribute);
  gtk_label_set_attributes(GTK_LABEL(label), attributes);
  pango_attr_list_unref(attributes);
}

/// Wraps anywhere if it must, so that no text needs more width than there is.
GtkWidget* wrappedLabel(const std::string& text) {
  GtkWidget* const widget = gtk_label_new(text.c_str());
  GtkLabel* const label = GTK_LABEL(widget);
  gtk_label_set_line_wrap(label, TRUE);
  gtk_label_set_line_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
  gtk_label_set_xalign(label, 0);
  // A hyphen where a line ends would look like a part of a host name.
  setAttribute(widget, pango_attr_insert_hyphens_new(FALSE));
  return widget;
}

GtkWidget* boldLabel(const std::string& text) {
  GtkWidget* const label = wrappedLabel(text);
  setAttribute(label, pango_attr_weight_new(PANGO_WEIGHT_BOLD));
  return label;
}

std::string headingOf(const PanelRequest& request) {
  return request.message.empty() ? "Certificate of " + shownHost(request.host, kLongestHost)
                                 : shownText(request.message, kLongestHeading);
}

/// Icon, heading, what is wrong, what follows.
GtkWidget* makeHead(const PanelRequest& request, const std::vector<std::string>& reasons) {
  constexpr double kHeadingScale = 1.2;
  GtkWidget* const head = row(kGap);
  GtkWidget* const icon = gtk_image_new_from_icon_name(
      request.kind == PanelKind::Trust || !reasons.empty() ? "dialog-warning" : "dialog-information",
      GTK_ICON_SIZE_DIALOG);
  gtk_widget_set_valign(icon, GTK_ALIGN_START);
  add(head, icon);
  GtkWidget* const texts = column(kGap);
  GtkWidget* const heading = boldLabel(breakable(headingOf(request)));
  setAttribute(heading, pango_attr_scale_new(kHeadingScale));
  add(texts, heading);
  for (const std::string& reason : reasons) {
    add(texts, wrappedLabel(breakable(reason)));
  }
  if (!request.informativeText.empty()) {
    add(texts, wrappedLabel(breakable(shownText(request.informativeText, kLongestText))));
  }
  gtk_box_pack_start(asBox(head), texts, TRUE, TRUE, 0);
  return head;
}

void addField(GtkWidget* grid, int line, const char* name, const std::string& value) {
  GtkWidget* const title = boldLabel(name);
  gtk_widget_set_valign(title, GTK_ALIGN_START);
  gtk_grid_attach(GTK_GRID(grid), title, 0, line, 1, 1);
  GtkWidget* const text = wrappedLabel(value);
  gtk_label_set_selectable(GTK_LABEL(text), TRUE);
  gtk_widget_set_hexpand(text, TRUE);
  gtk_grid_attach(GTK_GRID(grid), text, 1, line, 1, 1);
}

GtkWidget* makeFields(const CertificateChain& chain, std::size_t index) {
  constexpr int kLineGap = 6;
  GtkWidget* const grid = gtk_grid_new();
  gtk_grid_set_row_spacing(GTK_GRID(grid), kLineGap);
  gtk_grid_set_column_spacing(GTK_GRID(grid), kGap);
  const std::vector<std::pair<const char*, std::string>> fields = {
      {"Issued to", chain.wholeName(index)}, {"Issued by", chain.wholeIssuerName(index)},
      {"Valid from", chain.firstDay(index)}, {"Valid until", chain.lastDay(index)},
      {"SHA-256", chain.fingerprint(index)},
  };
  int line = 0;
  for (const auto& [name, value] : fields) {
    addField(grid, line++, name, value);
  }
  return grid;
}

GtkWidget* makeIssuers(const CertificateChain& chain) {
  GtkWidget* const list = column(kGap);
  const std::size_t shown = std::min(chain.size(), kMostIssuers + 1);
  for (std::size_t index = 1; index < shown; ++index) {
    if (index > 1) {
      add(list, gtk_separator_new(GTK_ORIENTATION_HORIZONTAL));
    }
    add(list, makeFields(chain, index));
  }
  if (shown < chain.size()) {
    add(list, wrappedLabel("The server sent more certificates, which are not shown."));
  }
  return list;
}

GtkWidget* makeScrolled(GtkWidget* content) {
  GtkWidget* const scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_overlay_scrolling(GTK_SCROLLED_WINDOW(scrolled), FALSE);
  gtk_container_add(GTK_CONTAINER(scrolled), content);
  // What gets the focus is scrolled to where it can be seen.
  gtk_container_set_focus_vadjustment(GTK_CONTAINER(content),
                                      gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scrolled)));
  return scrolled;
}

/// gcr 3 draws the title of its details on red ground.
void mendColoursOfDetails() {
  GtkCssProvider* const provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, ".gcr-red * { background-color: transparent; }", -1, nullptr);
  gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(provider),
                                            GTK_STYLE_PROVIDER_PRIORITY_USER);
  g_object_unref(provider);
}

GdkRectangle workArea(GtkWidget* widget) {
  GdkDisplay* const display = gtk_widget_get_display(widget);
  GdkMonitor* const primary = gdk_display_get_primary_monitor(display);
  GdkMonitor* const monitor = primary != nullptr ? primary : gdk_display_get_monitor(display, 0);
  GdkRectangle area = {0, 0, 640, 480};
  if (monitor != nullptr) {
    gdk_monitor_get_workarea(monitor, &area);
  }
  return area;
}

gboolean onKey(GtkWidget*, GdkEventKey* event, gpointer panel) {
  if (event->keyval != GDK_KEY_Escape) {
    return GDK_EVENT_PROPAGATE;
  }
  static_cast<PanelWindow*>(panel)->close();
  return GDK_EVENT_STOP;
}

gboolean onDelete(GtkWidget*, GdkEvent*, gpointer panel) {
  static_cast<PanelWindow*>(panel)->close();
  return GDK_EVENT_STOP;
}

void onDeclined(GtkButton*, gpointer panel) {
  static_cast<PanelWindow*>(panel)->close();
}

void onExpanded(GObject*, GParamSpec*, gpointer panel) {
  static_cast<PanelWindow*>(panel)->fitToScreen();
}

}  // namespace

PanelWindow::PanelWindow(const PanelRequest& request, const CertificateChain& chain)
    : window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)) {
  GtkWindow* const window = GTK_WINDOW(window_);
  const std::string title = "Certificate of " + shownHost(request.host, kLongestTitleHost);
  gtk_window_set_title(window, title.c_str());
  gtk_window_set_icon_name(window, "dialog-warning");
  gtk_window_set_type_hint(window, GDK_WINDOW_TYPE_HINT_DIALOG);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER);
  // The application that asks may be behind others; its request waits for the answer.
  gtk_window_set_keep_above(window, TRUE);
  gtk_window_set_urgency_hint(window, TRUE);
  g_signal_connect(window_, "key-press-event", G_CALLBACK(onKey), this);
  g_signal_connect(window_, "delete-event", G_CALLBACK(onDelete), this);

  content_ = makeContent(request, chain);
  buttons_ = makeButtons(request);
  GtkWidget* const all = column(0);
  gtk_box_pack_start(asBox(all), makeScrolled(content_), TRUE, TRUE, 0);
  add(all, gtk_separator_new(GTK_ORIENTATION_HORIZONTAL));
  add(all, buttons_);
  gtk_container_add(GTK_CONTAINER(window_), all);

  gtk_widget_show_all(all);
  fitToScreen();
  gtk_widget_grab_default(declining_);
  gtk_widget_grab_focus(declining_);
  gtk_window_present(window);
}

PanelWindow::~PanelWindow() {
  gtk_widget_destroy(window_);
}

bool PanelWindow::run() {
  gtk_main();
  return isConfirmed_;
}

void PanelWindow::close() {
  isConfirmed_ = false;
  gtk_main_quit();
}

GtkWidget* PanelWindow::makeContent(const PanelRequest& request, const CertificateChain& chain) {
  GtkWidget* const content = column(kGap);
  gtk_container_set_border_width(GTK_CONTAINER(content), kMargin);
  add(content, makeHead(request, reasonsAgainst(chain, request.host)));
  add(content, makeFields(chain, 0));
  mendColoursOfDetails();
  add(content, makeExpander("_All of the certificate", GTK_WIDGET(gcr_certificate_widget_new(chain.at(0)))));
  if (chain.size() > 1) {
    add(content, makeExpander("_Issuers", makeIssuers(chain)));
  }
  return content;
}

GtkWidget* PanelWindow::makeExpander(const char* mnemonic, GtkWidget* child) {
  GtkWidget* const expander = gtk_expander_new_with_mnemonic(mnemonic);
  gtk_widget_set_margin_top(child, kGap);
  gtk_container_add(GTK_CONTAINER(expander), child);
  g_signal_connect(expander, "notify::expanded", G_CALLBACK(onExpanded), this);
  return expander;
}

GtkWidget* PanelWindow::makeButtons(const PanelRequest& request) {
  GtkWidget* const pair = row(kGap);
  gtk_box_set_homogeneous(asBox(pair), TRUE);
  if (request.kind == PanelKind::Trust) {
    gtk_box_pack_start(asBox(pair), makeConfirmingButton(), TRUE, TRUE, 0);
    const std::string title = shownLine(request.alternateButtonTitle, kLongestToolTip);
    declining_ = makeDecliningButton(title.empty() ? "Cancel" : title);
  } else {
    declining_ = makeDecliningButton("OK");
  }
  gtk_box_pack_start(asBox(pair), declining_, TRUE, TRUE, 0);
  GtkWidget* const buttons = row(0);
  gtk_container_set_border_width(GTK_CONTAINER(buttons), kMargin);
  gtk_box_pack_end(asBox(buttons), pair, FALSE, FALSE, 0);
  return buttons;
}

GtkWidget* PanelWindow::makeConfirmingButton() {
  GtkWidget* const button = gtk_button_new_with_mnemonic("_Continue");
  const auto confirm = +[](GtkButton*, gpointer panel) {
    static_cast<PanelWindow*>(panel)->isConfirmed_ = true;
    gtk_main_quit();
  };
  g_signal_connect(button, "clicked", G_CALLBACK(confirm), this);
  return button;
}

GtkWidget* PanelWindow::makeDecliningButton(const std::string& title) {
  // The title is a text, not a mnemonic.
  GtkWidget* const button = gtk_button_new();
  GtkWidget* const label = gtk_label_new(title.c_str());
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_label_set_max_width_chars(GTK_LABEL(label), kLongestButtonTitle);
  gtk_container_add(GTK_CONTAINER(button), label);
  gtk_widget_set_tooltip_text(button, title.c_str());
  gtk_widget_set_size_request(button, kButtonWidth, -1);
  gtk_widget_set_can_default(button, TRUE);
  gtk_style_context_add_class(gtk_widget_get_style_context(button), "suggested-action");
  g_signal_connect(button, "clicked", G_CALLBACK(onDeclined), this);
  return button;
}

void PanelWindow::fitToScreen() {
  // What a window manager puts around the window.
  constexpr int kFrame = 40;
  constexpr int kSeparator = 2;
  GtkWindow* const window = GTK_WINDOW(window_);
  const GdkRectangle area = workArea(window_);
  const int width = std::min(kWidth, area.width);
  int contentHeight = 0;
  int buttonsHeight = 0;
  gtk_widget_get_preferred_height_for_width(content_, width, nullptr, &contentHeight);
  gtk_widget_get_preferred_height(buttons_, nullptr, &buttonsHeight);
  const int height = std::min(contentHeight + kSeparator + buttonsHeight, area.height - kFrame);
  gtk_window_resize(window, width, height);
  // A window that grows downwards takes its buttons along.
  int x = 0;
  int y = 0;
  gtk_window_get_position(window, &x, &y);
  if (const int lowest = area.y + area.height - kFrame - height;
      gtk_widget_get_visible(window_) && y > lowest) {
    gtk_window_move(window, x, lowest);
  }
}
