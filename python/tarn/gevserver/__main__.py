"""``python -m tarn.gevserver`` runs the demo camera."""

import sys

from tarn.gevserver.demo import main

sys.exit(main())
