/**
 * @file cmnmsgdgst5.h
 * @brief The message digest.
 */
#ifndef CMNMSGDGST5_H
#define CMNMSGDGST5_H

#include "cmnexport.h"

namespace kelp_cmn_4_4 {

/**
 * A digest of 128 bits over a sequence of bytes.
 *
 * It has the structure, constants, padding and output order of MD5 (RFC 1321), but computes on
 * 64-bit words that are never reduced to 32 bits. So its digests are deliberately not those of MD5:
 * the empty message gives "e4c23762ed2823a27e62a64b95c024e7". It is no protection against anybody
 * who wants two messages with one digest.
 *
 * Give it everything in the constructor, or feed it with Update() and end with Finalize(). After
 * that it ignores Update() and Finalize() until Initialize(). An object is used by one thread at a
 * time; it holds no memory of its own and may be copied at any time.
 */
class KELP_CMN_API CCmnMessageDigest5 {
 public:
  /** An open digest of no bytes, to be fed. */
  CCmnMessageDigest5();

  /**
   * The finished digest of some memory.
   * @param data    the bytes; null for none
   * @param length  their number
   */
  CCmnMessageDigest5(const void* data, unsigned long length);

  /**
   * The finished digest of a text.
   * @param text  its bytes up to the terminator, which is not part of it; null for none
   */
  CCmnMessageDigest5(const char* text);

  /**
   * The finished digest of a text of 16-bit units.
   * @param text  its units up to the terminating 0 unit, which is not part of it, each as the
   *              two bytes that it has in memory (the low one first); nothing is converted;
   *              null for none
   */
  CCmnMessageDigest5(const unsigned short* text);

  /** Begins anew: an open digest of no bytes, every member reset. */
  void Initialize();

  /**
   * Adds bytes behind the earlier ones; how a message is split does not matter. Does nothing
   * after Finalize().
   * @param data    the bytes; null adds nothing
   * @param length  their number
   */
  void Update(const unsigned char* data, unsigned long length);

  /** Ends the message and computes the digest. Does nothing when called again. */
  void Finalize();

  /**
   * One byte of the digest.
   * @param index  0 to 15
   * @return this byte of the digest; 0 for a larger index, and before Finalize()
   */
  unsigned char operator[](unsigned long index) const;

  /**
   * The digest as text.
   * @return the digest as 32 lower-case hexadecimal characters; the object's, valid while it lives
   *         and is not initialized again; empty before Finalize()
   */
  const char* GetAnsiMessageDigest() const;

  /**
   * Always empty.
   * @return an empty text, always: the wide form is never filled, which is meant.
   *         Use GetAnsiMessageDigest().
   */
  const wchar_t* GetUnicodeMessageDigest() const;

 protected:
  /**
   * One step of round 1: w = (v >> (32 - s) | v << s) + b with v = w + f(b, c, d) + x + t, where f
   * is the function of RFC 1321 for the round, on 64 bits.
   * @param w  the word to update
   * @param b  the first of the other three words
   * @param c  the second
   * @param d  the third
   * @param x  the word of the message
   * @param s  the shift, 1 to 31
   * @param t  the constant of the step
   */
  void Transform_Round1(unsigned long& w, unsigned long b, unsigned long c, unsigned long d,
                        unsigned long x, unsigned long s, unsigned long t);
  /** Transform_Round1() with the function of round 2. */
  void Transform_Round2(unsigned long& w, unsigned long b, unsigned long c, unsigned long d,
                        unsigned long x, unsigned long s, unsigned long t);
  /** Transform_Round1() with the function of round 3. */
  void Transform_Round3(unsigned long& w, unsigned long b, unsigned long c, unsigned long d,
                        unsigned long x, unsigned long s, unsigned long t);
  /** Transform_Round1() with the function of round 4. */
  void Transform_Round4(unsigned long& w, unsigned long b, unsigned long c, unsigned long d,
                        unsigned long x, unsigned long s, unsigned long t);

  /**
   * Takes a block into the state.
   * @param block  64 bytes
   */
  void Transform(const unsigned char* block);

  unsigned char m_buffer[64];   ///< bytes that wait for a whole block
  unsigned long m_bufferCount;  ///< their number, 0 to 63
  unsigned long m_state[4];     ///< the chaining values
  unsigned long m_bitCount;     ///< the bits of the blocks so far; of the message after Finalize()
  unsigned char m_digest[16];   ///< the digest
  char m_ansiDigest[33];        ///< the same in hexadecimal; once not empty, the digest is final
  wchar_t m_unicodeDigest[33];  ///< stays empty
};

}  // namespace kelp_cmn_4_4

#endif
