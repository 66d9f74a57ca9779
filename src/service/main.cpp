#include <gst/gst.h>

#include "src/service/service.h"

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  registerVelaService();
  return 0;
}
