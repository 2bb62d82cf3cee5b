#pragma once

/// Whoever reads or writes a document, and can be told that it goes no further.
class KrXmlRefusal
{
public:
    /// Prints the message with the place in the document, once a document; false always.
    bool fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
    virtual bool failed() const = 0;

    /// An object inside of another one, for as long as it is dealt with. Fails at more than
    /// Kr::Limits::kNestedObjects: those are told of each other by recursion.
    class Nesting
    {
    public:
        /// One level deeper, until it goes; refuses where there are too many. `refusal` outlives it.
        explicit Nesting(KrXmlRefusal& refusal);
        ~Nesting();
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;

    private:
        KrXmlRefusal& m_refusal;
    };

protected:
    KrXmlRefusal() = default;
    ~KrXmlRefusal() = default;
    /// Prints the reason unless one was printed.
    virtual void refuse(const char* reason) = 0;

private:
    unsigned int m_nesting = 0;
};
