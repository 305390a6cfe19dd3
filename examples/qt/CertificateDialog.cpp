#include "CertificateDialog.h"

#include <QCryptographicHash>
#include <QMessageBox>
#include <QPushButton>
#include <QSslCertificate>

#include "../desktop/Words.h"

namespace example {
namespace {

QString shown(const QString& text) {
  constexpr std::size_t kLongestName = 500;
  return QString::fromStdString(shownLine(text.toStdString(), kLongestName));
}

QString described(const std::string& pem) {
  const QSslCertificate certificate(QByteArray::fromStdString(pem));
  if (certificate.isNull()) {
    return {};
  }
  const auto name = [](const QSslCertificate& of, auto member) {
    return shown((of.*member)(QSslCertificate::CommonName).join(", "));
  };
  using Member = QStringList (QSslCertificate::*)(QSslCertificate::SubjectInfo) const;
  const QString fingerprint =
      QString::fromLatin1(certificate.digest(QCryptographicHash::Sha256).toHex(':')).toUpper();
  constexpr int kHalf = 48;
  return QString("Issued to: %1\nIssued by: %2\nValid until: %3\n\nSHA-256:\n%4\n%5")
      .arg(name(certificate, static_cast<Member>(&QSslCertificate::subjectInfo)),
           name(certificate, static_cast<Member>(&QSslCertificate::issuerInfo)),
           certificate.expiryDate().toString("d MMMM yyyy"), fingerprint.left(kHalf - 1),
           fingerprint.mid(kHalf));
}

}  // namespace

bool isCertificateAccepted(QWidget* parent, const CertificateQuestion& question) {
  QMessageBox box(parent);
  box.setIcon(QMessageBox::Warning);
  box.setWindowTitle(QString::fromStdString("Certificate of " + question.host));
  // Never markup: the texts are the server's.
  box.setTextFormat(Qt::PlainText);
  box.setText(QString::fromStdString(question.message));
  box.setInformativeText(QString::fromStdString(question.informativeText) + "\n\n" +
                         described(question.certificate));
  const QPushButton* const accept =
      question.isQuestion ? box.addButton("C&ontinue", QMessageBox::AcceptRole) : nullptr;
  QString title = QString::fromStdString(question.declineTitle);
  QPushButton* const decline = box.addButton(title.replace("&", "&&"), QMessageBox::RejectRole);
  box.setDefaultButton(decline);
  box.setEscapeButton(decline);
  box.exec();
  return accept != nullptr && box.clickedButton() == accept;
}

}  // namespace example
