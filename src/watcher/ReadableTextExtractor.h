#pragma once

#include <QByteArray>
#include <QByteArrayView>

namespace corvane {

// Keeps the readable parts of a binary stream: every run of text bytes (tab,
// line feed, carriage return, 32-126 and everything from 128 up) that is at
// least four bytes long and valid UTF-8 becomes text followed by one line
// feed; everything else is dropped.
//
// The input may arrive in chunks of any size, so a decompressor's output can
// be consumed as it is produced instead of being held whole. A run split
// across chunks is carried over, and the text comes out byte for byte as if
// the whole input had been given at once.
class ReadableTextExtractor {
public:
    // expectedInputBytes is only a hint for the output's first reservation.
    explicit ReadableTextExtractor(qsizetype expectedInputBytes = 0);

    void append(QByteArrayView chunk);
    // Bytes held so far, the unfinished run included: what finish() gives at most.
    qsizetype size() const { return m_text.size() + m_carry.size(); }
    // Ends the last run and hands over the text; the extractor is empty afterwards.
    QByteArray finish();

    // The text of the runs ended so far. A reader that passes the text on as
    // it comes takes it after each chunk and then discards it, so that only
    // one chunk's text is held at a time.
    QByteArrayView text() const { return m_text; }
    void discardText() { m_text.resize(0); }
    // Hands over the text of the runs ended so far, the next text going into
    // a fresh buffer with room for nextBytes.
    QByteArray takeText(qsizetype nextBytes);

    static bool isTextByte(unsigned char byte) { return textByteTable().values[byte]; }

private:
    struct TextByteTable {
        bool values[256];
    };
    static const TextByteTable& textByteTable();

    void endRun(QByteArrayView run);

    QByteArray m_text;
    // The unfinished run at the end of the previous chunk. Its capacity is
    // kept between runs so carrying over rarely allocates.
    QByteArray m_carry;
};

// The whole extraction of one buffer.
QByteArray extractReadableText(QByteArrayView bytes);

} // namespace corvane
