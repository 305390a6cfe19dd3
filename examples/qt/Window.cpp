#include "Window.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMetaObject>
#include <QVBoxLayout>
#include <utility>

#include "../desktop/Words.h"
#include "CertificateDialog.h"
#include "SignInDialog.h"
#include "foundation/ZEP_Foundation.h"

namespace example {
namespace {

enum Column { kName, kUrl, kStatus, kTime, kSize, kColumns };

QBrush colourOf(const Task& task) {
  switch (task.status) {
    case ZEP_HTTP_TASK_DONE:
      return QColor(0x26, 0x72, 0x2b);
    case ZEP_HTTP_TASK_FAILED:
    case ZEP_HTTP_TASK_TIMEOUT:
      return QColor(0xb3, 0x26, 0x1e);
    default:
      return {};
  }
}

}  // namespace

Window::Window()
    : signIn_(
          [this](std::function<void()> call) {
            QMetaObject::invokeMethod(this, std::move(call), Qt::QueuedConnection);
          },
          [this](bool wasRefused) { askToSignIn(wasRefused); }),
      tasks_([this](const Task& task) {
        showTasks();
        if (selected() == &task) {
          showSelected();
        }
      }) {
  constexpr QSize kWindowSize(760, 540);
  constexpr int kClockMilliseconds = 100;
  ZEP_TrustPanel_SetRunner(&Window::askAboutCertificate, this);
  makeTable();
  makeResult();
  auto* const all = new QVBoxLayout(this);
  all->addLayout(makeEntryRow());
  all->addWidget(table_, 1);
  all->addLayout(makeButtonRow());
  auto* const title = new QLabel("Resul&t");
  title->setBuddy(result_);
  all->addWidget(title);
  all->addWidget(result_, 1);
  resize(kWindowSize);
  connect(&clock_, &QTimer::timeout, this, &Window::showTasks);
  clock_.start(kClockMilliseconds);
  showTasks();
  showSelected();
}

Window::~Window() {
  stopRequests([this] { tasks_.clear(); });
  ZEP_TrustPanel_SetRunner(nullptr, nullptr);
}

QLayout* Window::makeEntryRow() {
  auto* const entry = new QLineEdit;
  entry->setPlaceholderText("https://…");
  auto* const label = new QLabel("&URL");
  label->setBuddy(entry);
  auto* const button = new QPushButton("&Add");
  const auto addTyped = [this, entry] {
    if (!entry->text().isEmpty()) {
      add(entry->text());
      entry->clear();
    }
  };
  connect(button, &QPushButton::clicked, this, addTyped);
  connect(entry, &QLineEdit::returnPressed, this, addTyped);
  auto* const row = new QHBoxLayout;
  row->addWidget(label);
  row->addWidget(entry, 1);
  row->addWidget(button);
  return row;
}

void Window::makeTable() {
  constexpr int kRowHeight = 24;
  constexpr int kColumnWidth = 80;
  table_ = new QTableWidget(0, kColumns, this);
  table_->setHorizontalHeaderLabels({"Task", "URL", "Status", "Time", "Size"});
  table_->verticalHeader()->hide();
  table_->setShowGrid(false);
  table_->setWordWrap(false);
  table_->setTextElideMode(Qt::ElideMiddle);
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setSelectionMode(QAbstractItemView::SingleSelection);
  table_->setTabKeyNavigation(false);
  table_->verticalHeader()->setDefaultSectionSize(kRowHeight);
  table_->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  table_->horizontalHeader()->setHighlightSections(false);
  table_->horizontalHeader()->setDefaultSectionSize(kColumnWidth);
  table_->horizontalHeader()->setSectionResizeMode(kUrl, QHeaderView::Stretch);
  connect(table_, &QTableWidget::itemSelectionChanged, this, &Window::showSelected);
}

QLayout* Window::makeButtonRow() {
  run_ = new QPushButton("&Run");
  auto* const runAll = new QPushButton("Run a&ll");
  pause_ = new QPushButton("&Pause");
  remove_ = new QPushButton("Re&move");
  connect(run_, &QPushButton::clicked, this, [this] { tasks_.run(selected()->name); });
  connect(runAll, &QPushButton::clicked, this, &Window::runAll);
  connect(pause_, &QPushButton::clicked, this,
          [this] { stopRequests([this] { tasks_.pause(selected()->name); }); });
  connect(remove_, &QPushButton::clicked, this, &Window::removeSelected);
  auto* const row = new QHBoxLayout;
  for (QPushButton* const button : {run_, runAll, pause_, remove_}) {
    row->addWidget(button);
  }
  row->addStretch();
  return row;
}

void Window::makeResult() {
  result_ = new QPlainTextEdit(this);
  result_->setReadOnly(true);
  result_->setTabChangesFocus(true);
  result_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
}

void Window::add(const QString& url) {
  const Task* const task = tasks_.find(tasks_.add(url.toStdString()));
  const int row = table_->rowCount();
  table_->insertRow(row);
  for (int column = 0; column < kColumns; ++column) {
    table_->setItem(row, column, new QTableWidgetItem);
  }
  for (const int column : {kTime, kSize}) {
    table_->horizontalHeaderItem(column)->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    table_->item(row, column)->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
  }
  table_->item(row, kUrl)->setToolTip(QString::fromStdString(shownUrl(task->url)));
  table_->selectRow(row);
  showTasks();
}

void Window::runAll() {
  for (const Task& task : tasks_.all()) {
    tasks_.run(task.name);
  }
}

void Window::removeSelected() {
  stopRequests([this] { tasks_.remove(selected()->name); });
  table_->removeRow(table_->currentRow());
  showTasks();
  showSelected();
}

// The rows are in the order of the tasks; while one is being removed there is a row more.
const Task* Window::selected() const {
  const QList<QTableWidgetItem*> items = table_->selectedItems();
  const auto row = static_cast<std::size_t>(items.isEmpty() ? -1 : items.first()->row());
  return row < tasks_.all().size() ? &tasks_.all()[row] : nullptr;
}

void Window::showTasks() {
  setWindowTitle(QString::fromStdString("httpPool: " + summary(tasks_.all())));
  int row = 0;
  for (const Task& task : tasks_.all()) {
    showRow(row++, task);
  }
}

void Window::showRow(int row, const Task& task) {
  const auto set = [&](Column column, const std::string& text) {
    table_->item(row, column)->setText(QString::fromStdString(text));
  };
  const bool hasBegun = task.start.time_since_epoch().count() != 0;
  set(kName, task.name);
  set(kUrl, shownUrl(task.url));
  set(kStatus, statusWord(task));
  set(kTime, hasBegun ? timeText(Tasks::elapsed(task)) : "");
  set(kSize, task.status == ZEP_HTTP_TASK_DONE ? sizeText(task.resultSize) : "");
  table_->item(row, kStatus)->setForeground(colourOf(task));
}

void Window::showSelected() {
  const Task* const task = selected();
  const bool isRunning = task != nullptr && task->status == ZEP_HTTP_TASK_REQUESTING;
  run_->setEnabled(task != nullptr && !isRunning);
  pause_->setEnabled(isRunning);
  remove_->setEnabled(task != nullptr);
  result_->setPlainText(task == nullptr ? "Add a URL and run it."
                                        : QString::fromStdString(resultText(*task)));
}

void Window::askToSignIn(bool wasRefused) {
  auto* const dialog = new SignInDialog(this, wasRefused);
  connect(dialog, &QDialog::finished, this, [this, dialog] { signIn_.answer(dialog->answer()); });
  dialog->open();
}

// Called by the library on the main thread, for one question after another.
int Window::askAboutCertificate(const char* requestJson, void* window) {
  return isCertificateAccepted(static_cast<Window*>(window), CertificateQuestion::from(requestJson)) ? 1 : 0;
}

}  // namespace example
