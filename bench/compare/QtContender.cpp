// Qt's QNetworkAccessManager, as an application without windows uses it.

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <string>

#include "bench/compare/Contender.h"
#include "bench/compare/Recorder.h"

namespace {

class Client {
 public:
  explicit Client(const bench::Assignment& assignment);

  bench::Figures run();

 private:
  void begin(int slot);
  void download(int slot);
  void ended(int slot, QNetworkReply* reply, long bytes, bool good);

  const bench::Assignment& assignment_;
  bench::Recorder recorder_;
  QNetworkAccessManager network_;
  QNetworkRequest request_;
  QFile file_;
};

Client::Client(const bench::Assignment& assignment)
    : assignment_(assignment),
      recorder_(assignment.work.inFlight, assignment.seconds),
      request_(QUrl(QString::fromStdString(assignment.url))),
      file_(QString::fromStdString(assignment.downloadFile())) {
  QSslConfiguration tls = request_.sslConfiguration();
  tls.addCaCertificates(QString::fromStdString(assignment.authorityFile));
  request_.setSslConfiguration(tls);
}

void Client::begin(int slot) {
  recorder_.begin(slot);
  QNetworkReply* reply = network_.get(request_);
  QObject::connect(reply, &QNetworkReply::finished, reply, [this, slot, reply] {
    const long bytes = static_cast<long>(reply->readAll().size());
    ended(slot, reply, bytes, reply->error() == QNetworkReply::NoError && bytes == assignment_.bodyBytes);
  });
}

void Client::download(int slot) {
  recorder_.begin(slot);
  file_.open(QIODevice::WriteOnly);
  QNetworkReply* reply = network_.get(request_);
  // Else the reply may take all of it into memory.
  reply->setReadBufferSize(qint64{4} * 1024 * 1024);
  QObject::connect(reply, &QNetworkReply::readyRead, reply, [this, reply] { file_.write(reply->readAll()); });
  QObject::connect(reply, &QNetworkReply::finished, reply, [this, slot, reply] {
    file_.write(reply->readAll());
    file_.close();
    ended(slot, reply, assignment_.bodyBytes,
          bench::hasSize(assignment_.downloadFile(), assignment_.bodyBytes));
  });
}

void Client::ended(int slot, QNetworkReply* reply, long bytes, bool good) {
  reply->deleteLater();
  if (recorder_.end(slot, bytes, good)) {
    begin(slot);
  } else if (recorder_.isDone()) {
    QCoreApplication::quit();
  }
}

bench::Figures Client::run() {
  for (int slot = 0; slot < assignment_.work.inFlight; ++slot) {
    if (assignment_.work.kind == bench::Kind::Download) {
      download(slot);
    } else {
      begin(slot);
    }
  }
  QCoreApplication::exec();
  bench::Figures figures = recorder_.figures();
  if (assignment_.work.protocol != bench::Protocol::Http2 && assignment_.work.inFlight > 6) {
    figures.note += figures.note.empty() ? "" : " ";
    figures.note += "Qt opens at most 6 connections to a host; the other requests wait in its queue.";
  }
  return figures;
}

bench::Figures runQt(const bench::Assignment& assignment) {
  return Client(assignment).run();
}

}  // namespace

int main(int count, char** words) {
  QCoreApplication application(count, words);
  return bench::contenderMain(count, words, runQt);
}
