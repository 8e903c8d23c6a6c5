from setuptools import find_packages, setup

setup(
    name="sample",
    version="1.0",
    description="A small project",
    packages=find_packages(),
    package_data={"sample": ["data/*.txt"]},
    test_suite="sample.tests",
    entry_points={"console_scripts": ["sample = sample:main"]},
)
