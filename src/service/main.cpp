#include <gst/gst.h>

#include "service/service.h"

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  registerVelaService();
  return 0;
}
