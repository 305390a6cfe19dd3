#include "Window.h"

#include <functional>
#include <string>
#include <utility>

#include "../desktop/Words.h"
#include "CertificateDialog.h"
#include "SignInDialog.h"
#include "foundation/ZEP_Foundation.h"

namespace example {
namespace {

constexpr int kMargin = 12;
constexpr int kGap = 8;

enum Column { kName, kUrl, kStatus, kColour, kTime, kSize, kColumns };

GtkBox* asBox(GtkWidget* widget) {
  return GTK_BOX(widget);
}

GtkWidget* scrolled(GtkWidget* child) {
  GtkWidget* const window = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(window), GTK_SHADOW_IN);
  gtk_scrolled_window_set_overlay_scrolling(GTK_SCROLLED_WINDOW(window), FALSE);
  gtk_container_add(GTK_CONTAINER(window), child);
  return window;
}

// A pane of text under its title. `text` is set to what is in it.
GtkWidget* textPane(const char* mnemonic, GtkWrapMode wrap, GtkTextBuffer** text) {
  constexpr int kTextMargin = 6;
  GtkWidget* const view = gtk_text_view_new();
  gtk_text_view_set_editable(GTK_TEXT_VIEW(view), FALSE);
  gtk_text_view_set_monospace(GTK_TEXT_VIEW(view), TRUE);
  gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(view), wrap);
  gtk_text_view_set_accepts_tab(GTK_TEXT_VIEW(view), FALSE);
  gtk_text_view_set_left_margin(GTK_TEXT_VIEW(view), kTextMargin);
  gtk_text_view_set_right_margin(GTK_TEXT_VIEW(view), kTextMargin);
  gtk_text_view_set_top_margin(GTK_TEXT_VIEW(view), kTextMargin);
  *text = gtk_text_view_get_buffer(GTK_TEXT_VIEW(view));
  GtkWidget* const title = gtk_label_new_with_mnemonic(mnemonic);
  gtk_label_set_mnemonic_widget(GTK_LABEL(title), view);
  gtk_label_set_xalign(GTK_LABEL(title), 0);
  GtkWidget* const pane = gtk_box_new(GTK_ORIENTATION_VERTICAL, kGap / 2);
  gtk_box_pack_start(asBox(pane), title, FALSE, FALSE, 0);
  gtk_box_pack_start(asBox(pane), scrolled(view), TRUE, TRUE, 0);
  return pane;
}

// A button that calls a member function of the window.
template <typename Window, void (Window::*kMember)()>
GtkWidget* button(const char* mnemonic, Window* window) {
  GtkWidget* const widget = gtk_button_new_with_mnemonic(mnemonic);
  const auto clicked = +[](GtkButton*, gpointer context) { (static_cast<Window*>(context)->*kMember)(); };
  g_signal_connect(widget, "clicked", G_CALLBACK(clicked), window);
  return widget;
}

void addColumn(GtkWidget* list, const char* title, Column column, float alignment) {
  GtkCellRenderer* const cell = gtk_cell_renderer_text_new();
  g_object_set(cell, "xalign", alignment, "xpad", 6U, nullptr);
  GtkTreeViewColumn* const shown =
      gtk_tree_view_column_new_with_attributes(title, cell, "text", column, nullptr);
  gtk_tree_view_column_set_alignment(shown, alignment);
  if (column == kUrl) {
    g_object_set(cell, "ellipsize", PANGO_ELLIPSIZE_MIDDLE, nullptr);
    gtk_tree_view_column_set_expand(shown, TRUE);
  }
  if (column == kStatus) {
    gtk_tree_view_column_add_attribute(shown, cell, "foreground", kColour);
  }
  gtk_tree_view_append_column(GTK_TREE_VIEW(list), shown);
}

// NULL: the list's own.
const char* colourOf(const Task& task) {
  switch (task.status) {
    case ZEP_HTTP_TASK_DONE:
      return "#26722b";
    case ZEP_HTTP_TASK_FAILED:
    case ZEP_HTTP_TASK_TIMEOUT:
      return "#b3261e";
    default:
      return nullptr;
  }
}

void callOnMainThread(std::function<void()> function) {
  const auto call = +[](gpointer context) -> gboolean {
    (*static_cast<std::function<void()>*>(context))();
    return G_SOURCE_REMOVE;
  };
  const auto forget = +[](gpointer context) { delete static_cast<std::function<void()>*>(context); };
  g_idle_add_full(G_PRIORITY_DEFAULT, call, new std::function<void()>(std::move(function)), forget);
}

}  // namespace

Window::Window()
    : window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)),
      signIn_(callOnMainThread, [this](bool wasRefused) { askToSignIn(wasRefused); }),
      tasks_([this](const Task& task) { changed(task); }) {
  constexpr int kWidth = 880;
  constexpr int kHeight = 620;
  constexpr guint kClockMilliseconds = 100;
  ZEP_TrustPanel_SetRunner(&Window::askAboutCertificate, this);

  GtkWidget* const all = gtk_box_new(GTK_ORIENTATION_VERTICAL, kGap);
  gtk_container_set_border_width(GTK_CONTAINER(all), kMargin);
  gtk_box_pack_start(asBox(all), makeEntryRow(), FALSE, FALSE, 0);
  gtk_box_pack_start(asBox(all), makeTaskList(), TRUE, TRUE, 0);
  gtk_box_pack_start(asBox(all), makeButtonRow(), FALSE, FALSE, 0);
  gtk_box_pack_start(asBox(all), makePanes(), TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(window_), all);
  gtk_window_set_default_size(GTK_WINDOW(window_), kWidth, kHeight);
  const auto closed = +[](GtkWidget*, GdkEvent*, gpointer) -> gboolean {
    gtk_main_quit();
    return GDK_EVENT_STOP;
  };
  g_signal_connect(window_, "delete-event", G_CALLBACK(closed), nullptr);

  const auto beat = +[](gpointer window) -> gboolean {
    static_cast<Window*>(window)->showTimes();
    return G_SOURCE_CONTINUE;
  };
  clock_ = g_timeout_add(kClockMilliseconds, beat, this);
  showSelected();
  showSummary();
  gtk_widget_show_all(window_);
}

Window::~Window() {
  g_source_remove(clock_);
  stopRequests([this] { tasks_.clear(); });
  ZEP_TrustPanel_SetRunner(nullptr, nullptr);
  g_signal_handlers_disconnect_by_data(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), this);
  gtk_widget_destroy(window_);
  g_object_unref(rows_);
}

GtkWidget* Window::makeEntryRow() {
  entry_ = gtk_entry_new();
  gtk_entry_set_placeholder_text(GTK_ENTRY(entry_), "https://…");
  GtkWidget* const label = gtk_label_new_with_mnemonic("_URL");
  gtk_label_set_mnemonic_widget(GTK_LABEL(label), entry_);
  GtkWidget* const add = button<Window, &Window::addTyped>("_Add", this);
  gtk_widget_set_can_default(add, TRUE);
  const auto entered = +[](GtkEntry*, gpointer window) { static_cast<Window*>(window)->addTyped(); };
  g_signal_connect(entry_, "activate", G_CALLBACK(entered), this);
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kGap);
  gtk_box_pack_start(asBox(row), label, FALSE, FALSE, 0);
  gtk_box_pack_start(asBox(row), entry_, TRUE, TRUE, 0);
  gtk_box_pack_start(asBox(row), add, FALSE, FALSE, 0);
  return row;
}

GtkWidget* Window::makeTaskList() {
  rows_ = gtk_list_store_new(kColumns, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING,
                             G_TYPE_STRING, G_TYPE_STRING);
  list_ = gtk_tree_view_new_with_model(GTK_TREE_MODEL(rows_));
  gtk_tree_view_set_enable_search(GTK_TREE_VIEW(list_), FALSE);
  addColumn(list_, "Task", kName, 0);
  addColumn(list_, "URL", kUrl, 0);
  addColumn(list_, "Status", kStatus, 0);
  addColumn(list_, "Time", kTime, 1);
  addColumn(list_, "Size", kSize, 1);
  const auto selected =
      +[](GtkTreeSelection*, gpointer window) { static_cast<Window*>(window)->showSelected(); };
  g_signal_connect(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), "changed", G_CALLBACK(selected), this);
  return scrolled(list_);
}

GtkWidget* Window::makeButtonRow() {
  run_ = button<Window, &Window::runSelected>("_Run", this);
  GtkWidget* const runAll = button<Window, &Window::runAll>("Run a_ll", this);
  pause_ = button<Window, &Window::pauseSelected>("_Pause", this);
  remove_ = button<Window, &Window::removeSelected>("Re_move", this);
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kGap);
  for (GtkWidget* const one : {run_, runAll, pause_, remove_}) {
    gtk_box_pack_start(asBox(row), one, FALSE, FALSE, 0);
  }
  return row;
}

GtkWidget* Window::makePanes() {
  constexpr int kResultWidth = 480;
  GtkWidget* const panes = gtk_paned_new(GTK_ORIENTATION_HORIZONTAL);
  GtkWidget* const result = textPane("Resul_t", GTK_WRAP_WORD, &result_);
  GtkWidget* const snapshot = textPane("_Snapshot of the pools", GTK_WRAP_NONE, &snapshot_);
  gtk_widget_set_margin_end(result, kGap / 2);
  gtk_widget_set_margin_start(snapshot, kGap / 2);
  gtk_paned_pack1(GTK_PANED(panes), result, TRUE, FALSE);
  gtk_paned_pack2(GTK_PANED(panes), snapshot, TRUE, FALSE);
  gtk_paned_set_position(GTK_PANED(panes), kResultWidth);
  return panes;
}

void Window::add(const std::string& url) {
  const Task* const task = tasks_.find(tasks_.add(url));
  GtkTreeIter row;
  gtk_list_store_append(rows_, &row);
  showRow(*task);
  gtk_tree_selection_select_iter(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), &row);
  showSummary();
}

void Window::addTyped() {
  const std::string url = gtk_entry_get_text(GTK_ENTRY(entry_));
  if (!url.empty()) {
    add(url);
    gtk_entry_set_text(GTK_ENTRY(entry_), "");
  }
}

void Window::runSelected() {
  if (const Task* const task = selected()) {
    tasks_.run(task->name);
  }
}

void Window::runAll() {
  for (const Task& task : tasks_.all()) {
    tasks_.run(task.name);
  }
}

void Window::pauseSelected() {
  if (const Task* const task = selected()) {
    stopRequests([&] { tasks_.pause(task->name); });
  }
}

void Window::removeSelected() {
  const Task* const task = selected();
  if (task == nullptr) {
    return;
  }
  stopRequests([&] { tasks_.remove(task->name); });
  GtkTreeIter row;
  gtk_tree_selection_get_selected(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), nullptr, &row);
  gtk_list_store_remove(rows_, &row);
  showSelected();
  showSummary();
}

const Task* Window::selected() const {
  GtkTreeIter row;
  if (!gtk_tree_selection_get_selected(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), nullptr, &row)) {
    return nullptr;
  }
  gchar* name = nullptr;
  gtk_tree_model_get(GTK_TREE_MODEL(rows_), &row, kName, &name, -1);
  const Task* const task = tasks_.find(name);
  g_free(name);
  return task;
}

void Window::changed(const Task& task) {
  showRow(task);
  showSummary();
  if (selected() == &task) {
    showSelected();
  }
}

void Window::showTimes() {
  for (const Task& task : tasks_.all()) {
    if (task.status == ZEP_HTTP_TASK_REQUESTING) {
      showRow(task);
    }
  }
}

// The rows are in the order of the tasks.
void Window::showRow(const Task& task) {
  const auto index = static_cast<int>(&task - tasks_.all().data());
  GtkTreeIter row;
  gtk_tree_model_iter_nth_child(GTK_TREE_MODEL(rows_), &row, nullptr, index);
  const bool hasBegun = task.start.time_since_epoch().count() != 0;
  const bool isDone = task.status == ZEP_HTTP_TASK_DONE;
  gtk_list_store_set(rows_, &row, kName, task.name.c_str(), kUrl, shownUrl(task.url).c_str(), kStatus,
                     statusWord(task).c_str(), kColour, colourOf(task), kTime,
                     hasBegun ? timeText(Tasks::elapsed(task)).c_str() : "", kSize,
                     isDone ? sizeText(task.resultSize).c_str() : "", -1);
}

void Window::showSelected() {
  const Task* const task = selected();
  const bool isRunning = task != nullptr && task->status == ZEP_HTTP_TASK_REQUESTING;
  gtk_widget_set_sensitive(run_, task != nullptr && !isRunning);
  gtk_widget_set_sensitive(pause_, isRunning);
  gtk_widget_set_sensitive(remove_, task != nullptr);
  const std::string text = task == nullptr ? "Add a URL and run it." : resultText(*task);
  gtk_text_buffer_set_text(result_, text.data(), static_cast<gint>(text.size()));
}

void Window::showSummary() {
  gtk_window_set_title(GTK_WINDOW(window_), ("httpPool: " + summary(tasks_.all())).c_str());
  const std::string text = Tasks::snapshot();
  gtk_text_buffer_set_text(snapshot_, text.data(), static_cast<gint>(text.size()));
}

void Window::askToSignIn(bool wasRefused) {
  showSignInDialog(GTK_WINDOW(window_), wasRefused,
                   [this](const std::optional<SignIn::Answer>& answer) { signIn_.answer(answer); });
}

// Called by the library on the main thread, for one question after another.
int Window::askAboutCertificate(const char* requestJson, void* window) {
  const CertificateQuestion question = CertificateQuestion::from(requestJson);
  return runCertificateDialog(GTK_WINDOW(static_cast<Window*>(window)->window_), question) ? 1 : 0;
}

}  // namespace example
