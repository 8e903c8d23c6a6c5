"""The service: owns the core's callbacks, and does what the front ends ask of the core."""
