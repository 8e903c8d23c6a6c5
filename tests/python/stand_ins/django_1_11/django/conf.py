class Settings(object):

    def configure(self, **given):
        self.__dict__.update(given)


settings = Settings()
