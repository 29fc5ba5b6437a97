#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QIODevice>
#include <QStringView>

#include <future>

namespace corvane {

// The objects of Apple's binary property-list format, version 1.0, encoded
// into a device through a small buffer that is handed on whenever it fills: a
// history file runs to hundreds of megabytes, and touching a fresh buffer of
// that size costs more than the encoding itself. A full buffer is written on
// a thread beside the encoding, which goes on in a second buffer: copying a
// history into the file system takes a good part of the encoding's time.
// The device is the output's alone until finish() returns.
//
// What goes where is the caller's business: it notes position() before each
// object for the offset table and finishes with the table and the trailer.
class BinaryPropertyListOutput {
public:
    explicit BinaryPropertyListOutput(QIODevice& device);

    // The smallest of 1, 2, 4 or 8 bytes that holds value.
    static int bytesFor(quint64 value);

    quint64 position() const { return m_flushed + quint64(m_used); }
    void setReferenceSize(int size) { m_referenceSize = size; }

    void writeMagic();
    void writeBoolean(bool value);
    void writeInteger(qint64 value);
    void writeReal(double value);
    void writeDate(double secondsSinceReferenceDate);
    // ASCII when every character is, else UTF-16.
    void writeString(QStringView string);
    void writeData(QByteArrayView bytes);
    // A container's marker; its count references (twice that for a
    // dictionary: keys, then values) follow through writeReferences.
    void writeArrayMarker(quint64 count);
    void writeDictionaryMarker(quint64 count);
    void writeReferences(const quint32* references, qsizetype count);
    // first, first + 1, ... first + count - 1.
    void writeConsecutiveReferences(quint32 first, qsizetype count);
    void writeBigEndian(quint64 value, int size);
    // The trailer after the offset table; the top object is always 0 here.
    void writeTrailer(int offsetSize, quint64 objectCount, quint64 tableOffset);

    // Hands the rest to the device; false when it refused any bytes.
    bool finish();

private:
    void ensure(qsizetype count);
    void flush();
    // Waits for the write of the buffer handed on before.
    void wait();
    char* grow(qsizetype count);
    void writeMarker(quint8 type, quint64 count);

    QIODevice& m_device;
    QByteArray m_buffer;
    // The buffer being written, and whether its write went through.
    QByteArray m_writing;
    std::future<bool> m_writeDone;
    qsizetype m_used = 0;  // bytes in m_buffer
    quint64 m_flushed = 0; // bytes already handed to m_device
    int m_referenceSize = 1;
    bool m_failed = false;
};

} // namespace corvane
