// Built with what pkg-config says of krToolkit alone.
#include <toolkit/math/KrVector.h>

int main()
{
    KrVector direction(0.0, 3.0, 4.0);
    return direction.normalize() == 5.0 ? 0 : 1;
}
