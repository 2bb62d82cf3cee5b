#pragma once

/// A 4 x 4 array of doubles, indexed [row][column].
class KrReArray
{
public:
    /// A row of numbers, as `m[row][column]`. Neither number is checked.
    const double* operator[](unsigned int row) const { return m_data[row]; }
    double* operator[](unsigned int row) { return m_data[row]; }

private:
    double m_data[4][4] = {};
};
